#include "platform/image/ImageSniffing.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using kvo::ImageType;

class ImageSniffing : public ::testing::Test {
 protected:
  // The type of a file whose leading bytes are `bytes`.
  static std::optional<ImageType> sniff(const std::string& bytes) {
    return kvo::image::sniffImageType(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  static std::string withPadding(std::string bytes) { return bytes + std::string(32, '\0'); }
};

TEST_F(ImageSniffing, NamesTheThreeAcceptedFormatsBySignature) {
  EXPECT_EQ(sniff("\x89PNG\r\n\x1A\n"), ImageType::png);
  EXPECT_EQ(sniff("\xFF\xD8\xFF\xE0"), ImageType::jpeg);
  EXPECT_EQ(sniff(std::string("RIFF\x10\0\0\0WEBPVP8 ", 16)), ImageType::webp);
}

TEST_F(ImageSniffing, RefusesSignaturesCutShort) {
  EXPECT_EQ(sniff("\x89PNG\r\n\x1A"), std::nullopt);
  EXPECT_EQ(sniff("\xFF\xD8"), std::nullopt);
  EXPECT_EQ(sniff("RIFF\x10\0\0\0WEB"), std::nullopt);
  EXPECT_EQ(sniff(std::string("RIFF\x10\0\0\0WAVE", 12)), std::nullopt);
  EXPECT_EQ(sniff(""), std::nullopt);
}

TEST_F(ImageSniffing, NamesOtherImageFormatsOther) {
  EXPECT_EQ(sniff("GIF89a"), ImageType::other);
  EXPECT_EQ(sniff("GIF87a"), ImageType::other);
  EXPECT_EQ(sniff(std::string("II*\0", 4)), ImageType::other);
  EXPECT_EQ(sniff(std::string("MM\0*", 4)), ImageType::other);
  EXPECT_EQ(sniff(std::string("II+\0", 4)), ImageType::other);
  EXPECT_EQ(sniff(std::string("\0\0\0\x0CjP  \r\n\x87\n", 12)), ImageType::other);
  EXPECT_EQ(sniff("\xFF\x4F\xFF\x51"), ImageType::other);
  EXPECT_EQ(sniff(std::string("\0\0\0\x0CJXL \r\n\x87\n", 12)), ImageType::other);
  EXPECT_EQ(sniff("\xFF\x0A"), ImageType::other);
  EXPECT_EQ(sniff(std::string("\0\0\1\0\1\0", 6)), ImageType::other);  // ICO with one image
}

TEST_F(ImageSniffing, TakesBmpOnlyWithAKnownHeaderSize) {
  std::string bmp = withPadding("BM");
  bmp[14] = 40;
  EXPECT_EQ(sniff(bmp), ImageType::other);
  bmp[14] = 41;
  EXPECT_EQ(sniff(bmp), std::nullopt);
  EXPECT_EQ(sniff("BM and some text"), std::nullopt);
}

TEST_F(ImageSniffing, TakesIsoMediaForAnImageOnlyWithAStillImageBrand) {
  EXPECT_EQ(sniff(std::string("\0\0\0\x18" "ftypheic\0\0\0\0mif1", 20)), ImageType::other);
  // The brand among the compatible ones, inside the box.
  EXPECT_EQ(sniff(std::string("\0\0\0\x18" "ftypisom\0\0\0\0avif", 20)), ImageType::other);
  // Beyond the box's declared size it does not count.
  EXPECT_EQ(sniff(std::string("\0\0\0\x10" "ftypisom\0\0\0\0avif", 20)), std::nullopt);
  EXPECT_EQ(sniff(std::string("\0\0\0\x18" "ftypisom\0\0\0\0mp41", 20)), std::nullopt);
}

TEST_F(ImageSniffing, TakesNetpbmOnlyWithASizeOrHeaderAfterTheMagic) {
  EXPECT_EQ(sniff("P6\n640 480\n255\n"), ImageType::other);
  EXPECT_EQ(sniff("P1 # comment\n 3 3"), ImageType::other);
  EXPECT_EQ(sniff("P7\nWIDTH 4\n"), ImageType::other);
  EXPECT_EQ(sniff("P1 is a plan"), std::nullopt);
  EXPECT_EQ(sniff("P7\nwidth 4\n"), std::nullopt);
  EXPECT_EQ(sniff("P8 100 100"), std::nullopt);
  EXPECT_EQ(sniff("P6 # only a comment"), std::nullopt);
}

TEST_F(ImageSniffing, IgnoresTheRestOfAFile) {
  EXPECT_EQ(sniff("%PDF-1.7\n"), std::nullopt);
  EXPECT_EQ(sniff("plain text"), std::nullopt);
  EXPECT_EQ(sniff(std::string("\0\0\0\0\0\0", 6)), std::nullopt);  // ICO with no image
}

}  // namespace
