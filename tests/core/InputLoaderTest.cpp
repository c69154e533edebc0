#include "VisionOcrCore/InputLoader.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <variant>

#include "fakes/Expectations.h"
#include "fakes/FakePlatform.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::ImageType;
using kvo::InputKind;
using kvo::LoadedImage;
using kvo::PdfDocument;
using kvo::StoredSize;
using namespace kvo::fakes;

constexpr const char* kInput = "/in/photo.png";
constexpr const char* kPdf = "/in/doc.pdf";

class InputLoader : public ::testing::Test {
 protected:
  FakePlatform fake;
  InMemoryFileSystem& fs = fake.fileSystem;
  FakeImageCodec& codec = fake.imageCodec;
  FakePdfLibrary& pdf = fake.pdfLibrary;
  kvo::InputLoader loader{fake.fileSystem, fake.imageCodec, fake.pdfLibrary};

  InputKind load(const std::string& path = kInput) { return loader.load(path); }

  ::testing::AssertionResult refused(HelperErrorCode code, const std::string& message,
                                     const std::string& path = kInput) {
    return throwsHelperError([&] { loader.load(path); }, code, message);
  }

  // A valid image file at `path` whose decoder is scripted with `image`.
  void imageFile(const std::string& path, ScriptedImage image = ScriptedImage::of(800, 600)) {
    fs.addFile(path, kPngSignature + std::string(100, '\x01'));
    codec.script(path, image);
  }

  // A file at `path` starting with the PDF signature, opened as `document`.
  void pdfFile(const std::string& path, FakePdfDocument document = FakePdfDocument::repeated(1)) {
    fs.addFile(path, kPdfHeader + std::string(200, 'x'));
    pdf.script(path, document);
  }

  static bool isPdf(const InputKind& kind) { return std::holds_alternative<std::unique_ptr<PdfDocument>>(kind); }
  static const kvo::Bitmap& bitmapOf(const InputKind& kind) { return std::get<LoadedImage>(kind).bitmap; }
};

// ---- file checks, in order ------------------------------------------------------------------

TEST_F(InputLoader, NothingAtThePathReportsMissingFile) {
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is missing"));
}

TEST_F(InputLoader, DirectoryReportsMissingFileNotAReadError) {
  fs.addDirectory(kInput);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is missing"));
  EXPECT_EQ(fs.count(FsOp::openForReading), 0u);
}

TEST_F(InputLoader, UnexaminablePathReportsMissingFile) {
  imageFile(kInput);
  fs.failMetadata(kInput);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is missing"));
}

TEST_F(InputLoader, UnknownRegularFileFlagReportsMissingFile) {
  imageFile(kInput);
  fs.overrideMetadata(kInput, kvo::FileMetadata{std::nullopt, 116});
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is missing"));
}

TEST_F(InputLoader, AsksForMetadataOnceWithThePathAsGiven) {
  imageFile(kInput);
  load();
  EXPECT_EQ(fs.count(FsOp::metadata, kInput), 1u);
}

TEST_F(InputLoader, ZeroByteFileIsEmptyBeforeAnyAttemptToOpenIt) {
  fs.addFile(kInput, "");
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is empty"));
  EXPECT_EQ(fs.count(FsOp::openForReading), 0u);
}

TEST_F(InputLoader, UnknownSizeIsEmpty) {
  imageFile(kInput);
  fs.overrideMetadata(kInput, kvo::FileMetadata{true, std::nullopt});
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is empty"));
}

TEST_F(InputLoader, FileOfExactlyTheSizeLimitIsAccepted) {
  fs.addFileOfSize(kInput, 536'870'912, kPngSignature);
  codec.script(kInput, ScriptedImage::of(10, 10));
  EXPECT_EQ(bitmapOf(load()).width(), 10);
}

TEST_F(InputLoader, FileOneByteOverTheLimitIsRefusedWithoutBeingOpened) {
  fs.addFileOfSize(kInput, 536'870'913, kPngSignature);
  codec.script(kInput, ScriptedImage::of(10, 10));
  EXPECT_TRUE(refused(HelperErrorCode::resourceLimitExceeded, "Input exceeds size limit"));
  EXPECT_EQ(fs.count(FsOp::openForReading), 0u);
  EXPECT_TRUE(codec.opens().empty());
}

TEST_F(InputLoader, FileThatCannotBeOpenedCannotBeRead) {
  imageFile(kInput);
  fs.failOpen(kInput);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file cannot be read"));
  EXPECT_TRUE(codec.opens().empty());
}

TEST_F(InputLoader, FailingReadPassesThroughUntranslatedAndClosesTheFile) {
  imageFile(kInput);
  fs.failRead(kInput, std::system_error(std::make_error_code(std::errc::io_error), "read /in/photo.png"));
  try {
    load();
    FAIL() << "the read failure was swallowed";
  } catch (const kvo::HelperError& e) {
    FAIL() << "the read failure was translated into " << e.message;
  } catch (const std::system_error& e) {
    EXPECT_EQ(e.code(), std::make_error_code(std::errc::io_error));
    EXPECT_STREQ(e.what(), "read /in/photo.png: Input/output error");
  }
  EXPECT_EQ(fs.count(FsOp::close, kInput), 1u);
  EXPECT_EQ(fs.openHandles(), 0);
  EXPECT_TRUE(codec.opens().empty());
}

TEST_F(InputLoader, ReadsAtMostTheFirst1024BytesOnceAndClosesTheFile) {
  fs.addFileOfSize(kInput, 50'000'000, kPngSignature);
  codec.script(kInput, ScriptedImage::of(10, 10));
  load();
  ASSERT_EQ(fs.count(FsOp::read, kInput), 1u);
  for (const auto& call : fs.calls()) {
    if (call.op == FsOp::read) {
      EXPECT_EQ(call.amount, 1024u);
    }
  }
  EXPECT_EQ(fs.openHandles(), 0);
  EXPECT_LT(fs.calls().size(), 6u);
}

TEST_F(InputLoader, FileIsClosedBeforeTheDecoderOpensIt) {
  imageFile(kInput);
  load();
  EXPECT_LT(fake.events.indexOf(std::string("fs.close ") + kInput), fake.events.indexOf(std::string("codec.open ") + kInput));
}

// ---- kind detection ------------------------------------------------------------------------

TEST_F(InputLoader, PdfSignatureSendsFileToThePdfOpenerWhateverItsName) {
  pdfFile("/in/scan.png");
  codec.script("/in/scan.png", ScriptedImage::of(10, 10));
  EXPECT_TRUE(isPdf(load("/in/scan.png")));
  EXPECT_EQ(pdf.opens(), std::vector<std::string>{"/in/scan.png"});
  EXPECT_TRUE(codec.opens().empty());
}

TEST_F(InputLoader, PngNamedLikeAPdfGoesToTheImageDecoder) {
  imageFile("/in/doc.pdf");
  EXPECT_FALSE(isPdf(load("/in/doc.pdf")));
  EXPECT_TRUE(pdf.opens().empty());
  EXPECT_EQ(codec.opens(), std::vector<std::string>{"/in/doc.pdf"});
}

TEST_F(InputLoader, SignatureAfter1019BytesOfOtherDataIsStillAPdf) {
  fs.addFile(kPdf, std::string(1019, 'j') + "%PDF-1.4\n" + std::string(50, 'x'));
  pdf.script(kPdf, FakePdfDocument::repeated(1));
  EXPECT_TRUE(isPdf(load(kPdf)));
}

TEST_F(InputLoader, SignatureStartingAtOffset1020IsNotSeen) {
  fs.addFile(kPdf, std::string(1020, 'j') + "%PDF-1.4\n" + std::string(50, 'x'));
  pdf.script(kPdf, FakePdfDocument::repeated(1));
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format", kPdf));
  EXPECT_TRUE(pdf.opens().empty());
  EXPECT_EQ(codec.opens(), std::vector<std::string>{kPdf});
}

TEST_F(InputLoader, FileShorterThanFiveBytesIsNeverAPdf) {
  fs.addFile(kPdf, "%PDF");
  pdf.script(kPdf, FakePdfDocument::repeated(1));
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format", kPdf));
  EXPECT_TRUE(pdf.opens().empty());
}

TEST_F(InputLoader, TextFileThatIsNotAPdfIsAnUnsupportedFormat) {
  fs.addFile("/in/notes.txt", "just some words, no signature");
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format", "/in/notes.txt"));
}

// ---- image decoding ----------------------------------------------------------------------------

TEST_F(InputLoader, ImageOfExactlyThePixelLimitIsDecoded) {
  imageFile(kInput, ScriptedImage::of(5000, 5000));
  const InputKind kind = load();
  EXPECT_EQ(bitmapOf(kind).width(), 5000);
  EXPECT_EQ(bitmapOf(kind).height(), 5000);
  EXPECT_EQ(codec.decodeCount(kInput), 1);
}

TEST_F(InputLoader, ImageOnePixelRowOverTheLimitIsRefusedWithoutDecoding) {
  imageFile(kInput, ScriptedImage::of(5000, 5001));
  EXPECT_TRUE(refused(HelperErrorCode::resourceLimitExceeded, "Image pixel count exceeds limit"));
  EXPECT_EQ(codec.decodeCount(), 0);
}

TEST_F(InputLoader, PixelLimitIsCheckedOnTheStoredSize) {
  ScriptedImage image = ScriptedImage::of(5001, 5000, ImageType::jpeg);
  image.uprightSize = StoredSize{10, 10};
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::resourceLimitExceeded, "Image pixel count exceeds limit"));
  EXPECT_EQ(codec.decodeCount(), 0);
}

TEST_F(InputLoader, JpegAndWebPAreAccepted) {
  imageFile("/in/a.jpg", ScriptedImage::of(30, 20, ImageType::jpeg));
  imageFile("/in/b.webp", ScriptedImage::of(40, 10, ImageType::webp));
  EXPECT_EQ(bitmapOf(load("/in/a.jpg")).width(), 30);
  EXPECT_EQ(bitmapOf(load("/in/b.webp")).width(), 40);
}

TEST_F(InputLoader, RotatedPhotoComesOutUprightWithWidthAndHeightSwapped) {
  ScriptedImage image = ScriptedImage::of(1800, 1200, ImageType::jpeg);
  image.uprightSize = StoredSize{1200, 1800};
  imageFile(kInput, image);
  const InputKind kind = load();
  EXPECT_EQ(bitmapOf(kind).width(), 1200);
  EXPECT_EQ(bitmapOf(kind).height(), 1800);
}

TEST_F(InputLoader, MultiImageFileYieldsOneDecodedImage) {
  ScriptedImage image = ScriptedImage::of(64, 48, ImageType::webp);
  image.imageCount = 12;
  imageFile(kInput, image);
  EXPECT_EQ(bitmapOf(load()).width(), 64);
  EXPECT_EQ(codec.decodeCount(kInput), 1);
}

TEST_F(InputLoader, NoImageSourceIsAnUnsupportedFormat) {
  fs.addFile(kInput, kPngSignature);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format"));
}

TEST_F(InputLoader, SourceWithoutImagesIsAnUnsupportedFormat) {
  ScriptedImage image;
  image.imageCount = 0;
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format"));
  image.imageCount = -1;
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format"));
  EXPECT_EQ(codec.decodeCount(), 0);
}

TEST_F(InputLoader, SourceWithoutTypeIsAnUnsupportedFormat) {
  ScriptedImage image;
  image.type = std::nullopt;
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format"));
}

TEST_F(InputLoader, GifTiffOrHeifIsAnUnsupportedFormatThoughDecodable) {
  imageFile(kInput, ScriptedImage::of(10, 10, ImageType::other));
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Unsupported or invalid input format"));
  EXPECT_EQ(codec.decodeCount(), 0);
}

TEST_F(InputLoader, MissingDimensionsFailToBeRead) {
  ScriptedImage image;
  image.storedSize = std::nullopt;
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Failed to read image dimensions"));
}

TEST_F(InputLoader, ZeroOrNegativeDimensionsAreInvalid) {
  imageFile(kInput, ScriptedImage::of(0, 10));
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Image dimensions are invalid"));
  imageFile(kInput, ScriptedImage::of(10, -1));
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Image dimensions are invalid"));
  EXPECT_EQ(codec.decodeCount(), 0);
}

TEST_F(InputLoader, DecodingFailureIsInvalidInput) {
  ScriptedImage image = ScriptedImage::of(10, 10);
  image.decodeFails = true;
  imageFile(kInput, image);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Failed to decode image"));
}

// ---- PDF opening ---------------------------------------------------------------------------------

TEST_F(InputLoader, UnparsablePdfFailsToOpen) {
  fs.addFile(kPdf, kPdfHeader + "truncated");
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Failed to open PDF", kPdf));
}

TEST_F(InputLoader, LockedPdfRequiresAPasswordWhateverItsPageCount) {
  FakePdfDocument document = FakePdfDocument::repeated(1);
  document.encrypted = document.locked = true;
  document.pageCount = 9'999;
  pdfFile(kPdf, document);
  EXPECT_TRUE(refused(HelperErrorCode::encryptedPdf, "PDF requires a password", kPdf));
  EXPECT_EQ(pdf.documentQueries(), (std::vector<std::string>{"isEncrypted", "isLocked"}));
}

TEST_F(InputLoader, AskingALockedDocumentForItsPagesFailsTheTest) {
  FakePdfDocument document = FakePdfDocument::repeated(1);
  document.encrypted = document.locked = true;
  auto locked = pdf.openDirectly(document);
  EXPECT_NONFATAL_FAILURE(locked->pageCount(), "a locked document was asked for pageCount");
  EXPECT_NONFATAL_FAILURE(locked->page(0), "a locked document was asked for a page");
}

TEST_F(InputLoader, EncryptedPdfThatOpensWithoutPasswordIsAccepted) {
  FakePdfDocument document = FakePdfDocument::repeated(2);
  document.encrypted = true;
  pdfFile(kPdf, document);
  EXPECT_TRUE(isPdf(load(kPdf)));
}

TEST_F(InputLoader, PdfWithoutPagesIsRefused) {
  pdfFile(kPdf, FakePdfDocument{});
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "PDF has no pages", kPdf));
  FakePdfDocument negative;
  negative.pageCount = -1;
  pdfFile(kPdf, negative);
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "PDF has no pages", kPdf));
}

TEST_F(InputLoader, PdfOf500PagesIsAccepted) {
  FakePdfDocument document;
  document.pageCount = 500;
  pdfFile(kPdf, document);
  const InputKind kind = load(kPdf);
  ASSERT_TRUE(isPdf(kind));
  EXPECT_EQ(std::get<std::unique_ptr<PdfDocument>>(kind)->pageCount(), 500);
}

TEST_F(InputLoader, PdfOf501PagesIsRefusedBeforeAnyPageIsTouched) {
  FakePdfDocument document = FakePdfDocument::repeated(501);
  pdfFile(kPdf, document);
  EXPECT_TRUE(refused(HelperErrorCode::resourceLimitExceeded, "PDF page count exceeds limit", kPdf));
  EXPECT_EQ(pdf.pageRequests(), 0);
  EXPECT_TRUE(pdf.renders().empty());
}

TEST_F(InputLoader, PdfChecksAskEncryptionThenPageCount) {
  pdfFile(kPdf, FakePdfDocument::repeated(3));
  load(kPdf);
  EXPECT_EQ(pdf.documentQueries(), (std::vector<std::string>{"isEncrypted", "pageCount"}));
}

TEST_F(InputLoader, LoaderKeepsNoStateBetweenCalls) {
  imageFile(kInput, ScriptedImage::of(10, 10));
  fs.addFile("/in/empty.png", "");
  EXPECT_TRUE(refused(HelperErrorCode::invalidInput, "Input file is empty", "/in/empty.png"));
  EXPECT_EQ(bitmapOf(load()).width(), 10);
  EXPECT_EQ(fs.openHandles(), 0);
}

}  // namespace
}  // namespace kvotest
