#pragma once

#include "fakes/EventLog.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeImageCodec.h"
#include "fakes/FakePdfLibrary.h"
#include "fakes/InMemoryFileSystem.h"
#include "fakes/ScriptedTextEngine.h"
#include "interfaces/Platform.h"

namespace kvo::fakes {

// Every fake service wired together around one shared event log, and the
// Platform that hands them to the pipeline. The image codec writes its PNG
// files into the in-memory file system.
struct FakePlatform {
  EventLog events;
  InMemoryFileSystem fileSystem{&events};
  FakeImageCodec imageCodec{&fileSystem, &events};
  FakePdfLibrary pdfLibrary{&events};
  ScriptedTextEngine textEngine{&events};
  FakeClock clock;
  Platform platform{fileSystem, imageCodec, pdfLibrary, textEngine, clock};
};

// Leading bytes of the common formats, for files whose kind the loader sniffs.
inline const std::string kPngSignature = std::string("\x89PNG\r\n\x1a\n", 8) + std::string("\0\0\0\rIHDR", 8);
inline const std::string kPdfHeader = "%PDF-1.7\n%\xe2\xe3\xcf\xd3\n";

}  // namespace kvo::fakes
