#include "fakes/ScriptedTextEngine.h"

#include "fakes/FakeBitmap.h"

namespace kvo::fakes {

TextObservation observation(std::string text, float confidence, NormalizedPoint topLeft, NormalizedPoint topRight,
                            NormalizedPoint bottomRight, NormalizedPoint bottomLeft) {
  TextObservation o;
  o.candidate = RecognizedCandidate{std::move(text), confidence};
  o.topLeft = topLeft;
  o.topRight = topRight;
  o.bottomRight = bottomRight;
  o.bottomLeft = bottomLeft;
  return o;
}

TextObservation textBox(std::string text, double left, double top, double right, double bottom, float confidence) {
  return observation(std::move(text), confidence, {left, 1 - top}, {right, 1 - top}, {right, 1 - bottom},
                     {left, 1 - bottom});
}

TextObservation withoutCandidate() {
  TextObservation o = textBox("", 0.1, 0.1, 0.5, 0.2);
  o.candidate.reset();
  return o;
}

std::optional<std::vector<TextObservation>> ScriptedTextEngine::recognize(const Bitmap& image,
                                                                          const RecognitionRequest& request) {
  calls_.push_back(Call{request, image.width(), image.height(), liveFakeBitmaps()});
  if (events_) {
    events_->add("engine.recognize " + std::to_string(image.width()) + "x" + std::to_string(image.height()));
  }
  if (script_.empty()) return std::vector<TextObservation>{};
  Response next = std::move(script_.front());
  script_.pop_front();
  if (auto* thrown = std::get_if<std::exception_ptr>(&next)) std::rethrow_exception(*thrown);
  return std::get<0>(std::move(next));
}

}  // namespace kvo::fakes
