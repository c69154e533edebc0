#pragma once

// The real binary, run as a host runs it: exact stdout bytes, exit status,
// stderr, and what is left in the artifacts directory.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "kit/OutputCollector.h"
#include "support/TestSupport.h"

namespace kvo::test {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class HelperBinary : public ::testing::Test {
 protected:
  ProcessResult run(std::vector<std::string> arguments, const std::vector<std::string>& env = {}) {
    arguments.insert(arguments.begin(), KVO_HELPER_PATH);
    ProcessResult result = runProcess(arguments, env);
    collectHelperOutput(arguments, result);
    return result;
  }

  // Runs on `input` into a fresh artifacts directory (created by the helper).
  ProcessResult runOn(const std::string& input, const std::vector<std::string>& extra = {},
                      const std::vector<std::string>& env = {}) {
    std::vector<std::string> arguments{"--input", input, "--artifacts", artifacts(), "--json"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return run(arguments, env);
  }

  // Runs on `input` into an artifacts directory of its own that goes away
  // afterwards: for tests that try several inputs in turn.
  ProcessResult runInFreshDirectory(const std::string& input, const std::vector<std::string>& extra = {}) {
    TempDir dir;
    std::vector<std::string> arguments{"--input", input, "--artifacts", dir.file("a"), "--json"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return run(arguments);
  }

  static std::string fixture(const std::string& name) { return fixturePath("blackbox/" + name); }
  static std::string pipelineFixture(const std::string& name) { return fixturePath("pipeline/" + name); }
  std::string artifacts() const { return temp_.file("artifacts"); }
  std::vector<std::string> artifactListing() const { return listTree(artifacts()); }
  Json resultJson() const { return Json::parse(readFile(artifacts() + "/result.json")); }

  static std::string failureLine(const std::string& code, const std::string& message) {
    return R"({"error":{"code":")" + code + R"(","message":")" + message + R"("},"ok":false})" "\n";
  }

  static void expectFailure(const ProcessResult& r, const std::string& code, const std::string& message) {
    EXPECT_EQ(r.out, failureLine(code, message));
    EXPECT_EQ(r.exitStatus, 2);
    EXPECT_EQ(r.err, "");
  }

  // Exactly one line on stdout, a JSON object, and nothing on stderr.
  static Json singleJsonLine(const ProcessResult& r) {
    EXPECT_EQ(r.err, "");
    EXPECT_FALSE(r.out.empty());
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << r.out;
    return Json::parse(r.out);
  }

  TempDir temp_;
};

}  // namespace kvo::test
