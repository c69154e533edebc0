#include "platform/image/WebpFormat.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <cstdint>
#include <cstring>

#include "platform/image/EncodedSource.h"

namespace kvo::image {

namespace {

class WebpSource final : public EncodedSource {
 public:
  using EncodedSource::EncodedSource;

  // Counted by the demuxer, which validates the container: 0 when it is
  // broken, 1 for a still image, the frame count for an animation.
  int64_t imageCount() override {
    const WebPData webp{data(), size()};
    WebPDemuxer* demux = WebPDemux(&webp);
    if (demux == nullptr) return 0;
    const int64_t frames = WebPDemuxGetI(demux, WEBP_FF_FRAME_COUNT);
    WebPDemuxDelete(demux);
    return frames;
  }

  std::optional<ImageType> type() override { return ImageType::webp; }

  Bitmap decodeUpright() override {
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(data(), size(), &features) != VP8_STATUS_OK || features.width <= 0 || features.height <= 0)
      return {};
    return features.has_animation ? decodeFirstFrame(features.has_alpha != 0) : decodeStill(features);
  }

 protected:
  std::optional<StoredSize> readHeader() override {
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(data(), size(), &features) != VP8_STATUS_OK || features.width <= 0 || features.height <= 0)
      return std::nullopt;
    return StoredSize{features.width, features.height};
  }

 private:
  Bitmap decodeStill(const WebPBitstreamFeatures& features) {
    const bool alpha = features.has_alpha != 0;
    Bitmap image = Bitmap::allocate(features.width, features.height, alpha ? PixelFormat::rgba8 : PixelFormat::rgb8);
    if (!image.valid()) return {};
    const size_t bytes = image.stride() * static_cast<size_t>(image.height());
    const int stride = static_cast<int>(image.stride());
    const uint8_t* decoded = alpha ? WebPDecodeRGBAInto(data(), size(), image.data(), bytes, stride)
                                   : WebPDecodeRGBInto(data(), size(), image.data(), bytes, stride);
    return decoded != nullptr ? std::move(image) : Bitmap{};
  }

  // The first frame of an animation, composed on its canvas (transparent
  // where the frame does not cover it). rgba8 when the file declares alpha
  // or the composed canvas is not fully opaque.
  Bitmap decodeFirstFrame(bool declaresAlpha) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return {};
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    const WebPData webp{data(), size()};
    std::unique_ptr<WebPAnimDecoder, void (*)(WebPAnimDecoder*)> decoder(WebPAnimDecoderNew(&webp, &options),
                                                                         &WebPAnimDecoderDelete);
    WebPAnimInfo info{};
    if (decoder == nullptr || !WebPAnimDecoderGetInfo(decoder.get(), &info)) return {};
    uint8_t* canvas = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &canvas, &timestamp) || canvas == nullptr) return {};
    const size_t pixels = size_t{info.canvas_width} * info.canvas_height;
    bool opaque = true;
    for (size_t i = 0; i < pixels && opaque; ++i) opaque = canvas[i * 4 + 3] == 255;
    const bool alpha = declaresAlpha || !opaque;
    Bitmap image = Bitmap::allocate(info.canvas_width, info.canvas_height, alpha ? PixelFormat::rgba8 : PixelFormat::rgb8);
    if (!image.valid()) return {};
    if (alpha) {
      std::memcpy(image.data(), canvas, pixels * 4);
    } else {
      uint8_t* out = image.data();
      for (size_t i = 0; i < pixels; ++i, out += 3) std::memcpy(out, canvas + i * 4, 3);
    }
    return image;
  }
};


}  // namespace

std::unique_ptr<ImageSource> openWebp(posix::FileBytes file) { return std::make_unique<WebpSource>(std::move(file)); }

}  // namespace kvo::image
