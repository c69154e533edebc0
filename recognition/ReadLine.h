#pragma once

#include <vector>

#include "interfaces/ReadText.h"
#include "recognition/LineText.h"
#include "recognition/LineGeometry.h"

namespace kvo::recognition {

using kvo::ReadLine;

}  // namespace kvo::recognition
