#include <gtest/gtest.h>
#include "platform/TesseractEngine.h"
TEST(TesseractEngineTmp, Builds) { kvo::TesseractEngine e; SUCCEED(); }
