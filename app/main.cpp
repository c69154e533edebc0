// kem-vision-ocr: one OCR job per process. Everything happens in the
// library; this file only builds the real platform and owns the streams.

#include <string>
#include <vector>

#include "VisionOcrCore/EntryPoint.h"
#include "platform/PopplerPdfLibrary.h"
#include "platform/PosixFileSystem.h"
#include "platform/StandardImageCodec.h"
#include "platform/StandardStreams.h"
#include "platform/SteadyClock.h"
#include "platform/TesseractEngine.h"

int main(int argc, char** argv) {
  kvo::StandardStreams streams;  // first: nothing a library prints may reach the host
  kvo::PosixFileSystem fileSystem;
  kvo::StandardImageCodec imageCodec;
  kvo::PopplerPdfLibrary pdfLibrary;
  kvo::TesseractEngine textEngine;
  kvo::SteadyClock clock;
  kvo::Platform platform{fileSystem, imageCodec, pdfLibrary, textEngine, clock};

  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const kvo::HelperOutcome outcome = kvo::runHelper(arguments, platform);
  streams.writeError(outcome.standardError);
  streams.writeOutput(outcome.standardOutput);
  return outcome.exitStatus;
}
