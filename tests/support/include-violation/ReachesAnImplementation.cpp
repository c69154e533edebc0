// Never compiled: the IncludeRules tests run the include check on this folder
// with the core's rules and expect it to fail here.
#include "interfaces/Platform.h"
#include "platform/TesseractEngine.h"
