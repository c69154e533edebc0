#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fakes/EventLog.h"
#include "interfaces/TextRecognitionEngine.h"

namespace kvo::fakes {

// An observation from its four corners in the engine's own frame
// (normalised, origin bottom-left, y up).
TextObservation observation(std::string text, float confidence, NormalizedPoint topLeft, NormalizedPoint topRight,
                            NormalizedPoint bottomRight, NormalizedPoint bottomLeft);

// An upright box given as fractions of the image measured from its top-left
// corner (the way one reads a page), converted to the engine's frame.
TextObservation textBox(std::string text, double left, double top, double right, double bottom,
                        float confidence = 0.9f);

// An observation for which the engine has no candidate.
TextObservation withoutCandidate();

// A recognition engine that answers each call with the next scripted
// response: observations, a failure (nullopt), or a thrown exception. With
// nothing scripted, a call finds no text. Records every request with the size
// of the bitmap it was given.
class ScriptedTextEngine : public TextRecognitionEngine {
 public:
  explicit ScriptedTextEngine(EventLog* events = nullptr) : events_(events) {}

  void respond(std::vector<TextObservation> observations) { script_.emplace_back(std::move(observations)); }
  void respondWithText(const std::string& text) { respond({textBox(text, 0.1, 0.1, 0.9, 0.2)}); }
  void fail() { script_.emplace_back(std::nullopt); }
  template <typename Exception>
  void throwOnCall(Exception exception) {
    script_.emplace_back(std::make_exception_ptr(std::move(exception)));
  }

  struct Call {
    RecognitionRequest request;
    int64_t width = 0;
    int64_t height = 0;
    int liveBitmaps = 0;  // fake bitmaps alive during the call
  };
  const std::vector<Call>& calls() const { return calls_; }

  std::optional<std::vector<TextObservation>> recognize(const Bitmap& image,
                                                        const RecognitionRequest& request) override;

 private:
  using Response = std::variant<std::optional<std::vector<TextObservation>>, std::exception_ptr>;
  EventLog* events_;
  std::deque<Response> script_;
  std::vector<Call> calls_;
};

}  // namespace kvo::fakes
