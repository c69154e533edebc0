// The helper binary on every input of the third-party conformance corpus
// (../shared/corpus, described by its MANIFEST.tsv): one JSON line, exit 0
// or 2, a silent stderr, the outcome the manifest expects, the upright size
// where it gives one, and nothing left behind but the artifacts. Skipped
// when the corpus is absent.

#include <sys/stat.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "blackbox/BlackBoxFixture.h"

namespace kvo::test {
namespace {

struct CorpusCase {
  std::string path;     // relative to the corpus
  std::string expect;   // ok, invalid_input, encrypted_pdf, resource_limit_exceeded or unknown
  std::string upright;  // "WxH" or "-"
  std::string mode;     // text or layout
};

void PrintTo(const CorpusCase& c, std::ostream* os) { *os << c.path << " (" << c.mode << ")"; }

// A run that would take many minutes in layout mode: the 352-page book is
// exercised in text mode only.
bool layoutTooSlow(const std::string& path) { return path == "limits/freeculture.pdf"; }

std::vector<CorpusCase> manifestCases() {
  std::vector<CorpusCase> cases;
  if (!corpusAvailable()) return cases;
  std::ifstream manifest(corpusPath("MANIFEST.tsv"));
  std::string line;
  std::getline(manifest, line);  // header
  while (std::getline(manifest, line)) {
    std::vector<std::string> columns;
    std::stringstream row(line);
    for (std::string column; std::getline(row, column, '\t');) columns.push_back(column);
    // path, source_repository, source_path, source_commit, licence, expect, upright_wxh, role, ...
    if (columns.size() < 8 || columns[7] != "input") continue;
    const bool pdf = columns[0].size() > 4 && columns[0].compare(columns[0].size() - 4, 4, ".pdf") == 0;
    cases.push_back({columns[0], columns[5], columns[6], pdf ? "text" : "layout"});
    if (pdf && !layoutTooSlow(columns[0])) cases.push_back({columns[0], columns[5], columns[6], "layout"});
  }
  return cases;
}

std::string caseName(const ::testing::TestParamInfo<CorpusCase>& info) {
  return std::regex_replace(info.param.path, std::regex("[^A-Za-z0-9]"), "_") + "_" + info.param.mode;
}

struct FileStamp {
  off_t size;
  timespec modified;
  bool operator==(const FileStamp& o) const {
    return size == o.size && modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
  }
};

FileStamp stamp(const std::string& path) {
  struct stat st {};
  stat(path.c_str(), &st);
  return {st.st_size, st.st_mtim};
}

class CorpusConformance : public HelperBinary, public ::testing::WithParamInterface<CorpusCase> {
 protected:
  static bool allowedArtifact(const std::string& entry) {
    static const std::regex allowed(R"(ocr\.txt|result\.json|pages/|pages/page-\d{4}\.png)");
    return std::regex_match(entry, allowed);
  }
};

TEST_P(CorpusConformance, EndsAsTheManifestExpects) {
  const CorpusCase& c = GetParam();
  const std::string input = corpusPath(c.path);
  const FileStamp before = stamp(input);
  ProcessResult r = runOn(input, {"--output-mode", c.mode});

  Json line = singleJsonLine(r);
  ASSERT_TRUE(r.exitStatus == 0 || r.exitStatus == 2) << r.exitStatus << " " << r.out;
  EXPECT_EQ(line["ok"], r.exitStatus == 0);
  if (c.expect == "ok") {
    EXPECT_EQ(r.exitStatus, 0) << r.out;
  } else if (c.expect != "unknown") {
    EXPECT_EQ(r.exitStatus, 2) << r.out;
    EXPECT_EQ(line["error"]["code"], c.expect) << r.out;
  }
  if (c.upright != "-" && r.exitStatus == 0) {
    const Json page = resultJson()["pages"][0];
    EXPECT_EQ(std::to_string(page["width"].get<int64_t>()) + "x" + std::to_string(page["height"].get<int64_t>()),
              c.upright);
  }
  for (const std::string& entry : artifactListing()) EXPECT_TRUE(allowedArtifact(entry)) << entry;
  for (const std::string& entry : listTree(temp_.path())) {
    EXPECT_EQ(entry.rfind("artifacts/", 0), 0u) << "nothing beside the artifacts directory: " << entry;
  }
  EXPECT_TRUE(stamp(input) == before) << "the input is never modified";
}

INSTANTIATE_TEST_SUITE_P(Manifest, CorpusConformance, ::testing::ValuesIn(manifestCases()), caseName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CorpusConformance);

TEST(CorpusManifest, ListsTheInputsWhenPresent) {
  if (!corpusAvailable()) GTEST_SKIP() << "../shared/corpus is not present";
  EXPECT_GE(manifestCases().size(), 360u);
}

}  // namespace
}  // namespace kvo::test
