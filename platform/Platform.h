#pragma once

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/ImageCodec.h"
#include "platform/PdfLibrary.h"
#include "platform/TextRecognitionEngine.h"

namespace kvo {

// The outside services one run uses. The entry point builds the real ones;
// tests pass fakes.
struct Platform {
  FileSystem& fileSystem;
  ImageCodec& imageCodec;
  PdfLibrary& pdfLibrary;
  TextRecognitionEngine& textEngine;
  Clock& clock;
};

}  // namespace kvo
