#include "recognition/ReadingPlan.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvo::recognition::joinCodes;
using kvo::recognition::modelCodes;
using kvo::recognition::Script;
using kvo::recognition::splitCodes;

class ReadingPlan : public ::testing::Test {
 protected:
  static kvo::recognition::ReadingPlan plan(const std::string& models) {
    return kvo::recognition::ReadingPlan::forModels(models);
  }
};

TEST_F(ReadingPlan, MapsLanguageTagsToModels) {
  EXPECT_EQ(modelCodes({"zh-Hans", "zh-Hant", "en-US"}), "chi_sim+chi_tra+eng");
  EXPECT_EQ(modelCodes({"en", "zh-Hant"}), "eng+chi_tra");
  EXPECT_EQ(modelCodes({"zh-Hans-CN", "EN-gb", "en"}), "chi_sim+eng");
  EXPECT_EQ(modelCodes({"fr", "zh-Hant-TW"}), "chi_tra");
  EXPECT_EQ(modelCodes({"fr"}), "chi_sim+chi_tra+eng");
  EXPECT_EQ(modelCodes({}), "chi_sim+chi_tra+eng");
  EXPECT_EQ(modelCodes({"eng", "zh"}), "chi_sim+chi_tra+eng");
  EXPECT_EQ(modelCodes({"zh-Hansx", "english"}), "chi_sim+chi_tra+eng");
}

TEST_F(ReadingPlan, JoinsAndSplitsModelCodes) {
  EXPECT_EQ(joinCodes({"chi_sim", "eng"}), "chi_sim+eng");
  EXPECT_EQ(joinCodes({}), "");
  EXPECT_EQ(splitCodes("chi_sim+chi_tra+eng"), (std::vector<std::string>{"chi_sim", "chi_tra", "eng"}));
  EXPECT_EQ(splitCodes("eng"), (std::vector<std::string>{"eng"}));
  EXPECT_EQ(splitCodes("+eng++chi_sim+"), (std::vector<std::string>{"eng", "chi_sim"}));
  EXPECT_TRUE(splitCodes("").empty());
}

TEST_F(ReadingPlan, ReadsWithEveryModelWhenOnlyOneChineseIsRequested) {
  for (const std::string models : {"chi_sim+eng", "chi_tra", "eng", "eng+chi_tra"}) {
    const auto p = plan(models);
    EXPECT_FALSE(p.choosesScript()) << models;
    EXPECT_EQ(p.layout, models);
    EXPECT_EQ(p.withoutHan, models);
    for (const Script s : {Script::noHan, Script::first, Script::second}) EXPECT_EQ(p.pageModels(s), models);
    EXPECT_EQ(p.first, "");
    EXPECT_EQ(p.second, "");
    EXPECT_EQ(p.latin, "");
  }
}

TEST_F(ReadingPlan, ChoosesBetweenBothChineseModelsInRequestOrder) {
  const auto p = plan("chi_sim+chi_tra+eng");
  EXPECT_TRUE(p.choosesScript());
  EXPECT_EQ(p.first, "chi_sim");
  EXPECT_EQ(p.second, "chi_tra");
  EXPECT_EQ(p.layout, "chi_sim");
  // A page without Han is read with the Latin models first.
  EXPECT_EQ(p.withoutHan, "eng+chi_sim");
  EXPECT_EQ(p.latin, "eng");

  const auto q = plan("eng+chi_tra+chi_sim");
  EXPECT_EQ(q.first, "chi_tra");
  EXPECT_EQ(q.second, "chi_sim");
  EXPECT_EQ(q.layout, "chi_tra");
  EXPECT_EQ(q.withoutHan, "eng+chi_tra");
  EXPECT_EQ(q.latin, "eng");
}

TEST_F(ReadingPlan, HasNoLatinModelsWhenOnlyChineseIsRequested) {
  const auto p = plan("chi_tra+chi_sim");
  EXPECT_EQ(p.first, "chi_tra");
  EXPECT_EQ(p.layout, "chi_tra");
  EXPECT_EQ(p.withoutHan, "chi_tra");
  EXPECT_EQ(p.latin, "");
}

TEST_F(ReadingPlan, ReadsAChinesePageWithTheChosenModelAloneAndAnyOtherWithAllButTheSecond) {
  const auto p = plan("chi_sim+chi_tra+eng");
  EXPECT_EQ(p.pageModels(Script::first), "chi_sim");
  EXPECT_EQ(p.pageModels(Script::second), "chi_tra");
  EXPECT_EQ(p.pageModels(Script::noHan), "eng+chi_sim");
}

}  // namespace
