#pragma once

// When KVO_OUTPUT_COLLECT_DIR is set (tests/CMakeLists.txt sets it for the
// black-box tests), every run of the helper binary leaves a copy of what a
// host would parse in a directory of its own below it: `stdout` (the exact
// bytes), `exit` (the status), `test` (the test's name) and, after a
// successful run, `result.json`. The HelperOutputs.MatchSchemas test then
// validates all of them against schemas/. Without the variable nothing is
// written.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace kvo::test {

inline void collectHelperOutput(const std::vector<std::string>& arguments, const ProcessResult& result) {
  const char* root = std::getenv("KVO_OUTPUT_COLLECT_DIR");
  if (root == nullptr || *root == '\0') return;
  std::error_code ec;
  std::filesystem::create_directories(root, ec);
  std::string pattern = std::string(root) + "/run-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    ADD_FAILURE() << "cannot make a directory below KVO_OUTPUT_COLLECT_DIR " << root;
    return;
  }
  const std::string run = pattern;
  writeFile(run + "/stdout", result.out);
  writeFile(run + "/exit", std::to_string(result.exitStatus) + "\n");
  if (const auto* info = ::testing::UnitTest::GetInstance()->current_test_info()) {
    writeFile(run + "/test", std::string(info->test_suite_name()) + "." + info->name() + "\n");
  }
  if (result.exitStatus != 0) return;
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    if (arguments[i] != "--artifacts") continue;
    const std::string resultJson = arguments[i + 1] + "/result.json";
    if (std::filesystem::is_regular_file(resultJson, ec)) writeFile(run + "/result.json", readFile(resultJson));
  }
}

}  // namespace kvo::test
