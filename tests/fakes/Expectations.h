#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <utility>

#include "VisionOcrCore/Models.h"

namespace kvo::fakes {

// Success when `body` throws a HelperError with exactly `code` and
// `message`; otherwise a failure that says what happened instead.
template <typename Body>
::testing::AssertionResult throwsHelperError(Body&& body, HelperErrorCode code, const std::string& message) {
  try {
    std::forward<Body>(body)();
  } catch (const HelperError& error) {
    if (error.code == code && error.message == message) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "threw " << rawValue(error.code) << " \"" << error.message
                                         << "\" instead of " << rawValue(code) << " \"" << message << "\"";
  } catch (const std::exception& other) {
    return ::testing::AssertionFailure() << "threw a non-HelperError: " << other.what();
  } catch (...) {
    return ::testing::AssertionFailure() << "threw something that is not an exception";
  }
  return ::testing::AssertionFailure() << "threw nothing; expected " << rawValue(code) << " \"" << message << "\"";
}

}  // namespace kvo::fakes

namespace kvo {
// Readable codes in gtest messages.
inline void PrintTo(HelperErrorCode code, std::ostream* os) { *os << rawValue(code); }
inline void PrintTo(OcrOutputMode mode, std::ostream* os) { *os << rawValue(mode); }
}  // namespace kvo
