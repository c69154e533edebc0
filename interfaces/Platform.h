#pragma once

#include "interfaces/Clock.h"
#include "interfaces/FileSystem.h"
#include "interfaces/ImageCodec.h"
#include "interfaces/PdfLibrary.h"
#include "interfaces/TextRecognitionEngine.h"

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
