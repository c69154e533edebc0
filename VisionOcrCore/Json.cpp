#include "VisionOcrCore/Json.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace kvo {

using Json = nlohmann::json;  // object members kept in a std::map: sorted by key bytes

namespace {

// ---- encoding -------------------------------------------------------------

Json number(double value) {
  if (!std::isfinite(value)) throw JsonEncodingError("Unable to encode a non-finite number as JSON");
  return Json(value);
}

Json toJson(const OcrRegion& r) {
  Json polygon = Json::array();
  for (const auto& point : r.polygon) {
    Json p = Json::array();
    for (double coordinate : point) p.push_back(number(coordinate));
    polygon.push_back(std::move(p));
  }
  return Json{{"text", r.text}, {"confidence", number(r.confidence)}, {"polygon", std::move(polygon)}};
}

Json toJson(const OcrPage& p) {
  Json regions = Json::array();
  for (const auto& r : p.regions) regions.push_back(toJson(r));
  Json j{{"page", p.page}, {"text", p.text}, {"width", p.width}, {"height", p.height}};
  if (p.imagePath) j["imagePath"] = *p.imagePath;
  j["regions"] = std::move(regions);
  return j;
}

Json toJson(const Metadata& m) { return Json{{"elapsedMs", number(m.elapsedMs)}}; }

Json toJson(const OcrDocument& d) {
  Json pages = Json::array();
  for (const auto& p : d.pages) pages.push_back(toJson(p));
  return Json{{"text", d.text}, {"pageCount", d.pageCount}, {"pages", std::move(pages)}, {"metadata", toJson(d.metadata)}};
}

Json toJson(const PagePreview& p) { return Json{{"page", p.page}, {"imagePath", p.imagePath}}; }

Json toJson(const SuccessPayload& s) {
  Json previews = Json::array();
  for (const auto& p : s.pagesPreview) previews.push_back(toJson(p));
  return Json{{"ok", s.ok},
              {"resultPath", s.resultPath},
              {"pageCount", s.pageCount},
              {"textPreview", s.textPreview},
              {"textPath", s.textPath},
              {"truncated", s.truncated},
              {"pagesPreview", std::move(previews)}};
}

Json toJson(const PayloadError& e) { return Json{{"code", std::string(rawValue(e.code))}, {"message", e.message}}; }

Json toJson(const FailurePayload& f) { return Json{{"ok", f.ok}, {"error", toJson(f.error)}}; }

// ---- decoding -------------------------------------------------------------

[[noreturn]] void fail(const std::string& what) { throw JsonDecodingError(what); }

const Json& member(const Json& object, const char* key) {
  if (!object.is_object()) fail("Expected an object");
  auto it = object.find(key);
  if (it == object.end()) fail(std::string("Missing key \"") + key + "\"");
  return *it;
}

std::string text(const Json& object, const char* key) {
  const Json& v = member(object, key);
  if (!v.is_string()) fail(std::string("Expected text for \"") + key + "\"");
  return v.get<std::string>();
}

int64_t integer(const Json& object, const char* key) {
  const Json& v = member(object, key);
  if (!v.is_number_integer()) fail(std::string("Expected an integer for \"") + key + "\"");
  if (v.is_number_unsigned() && v.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
    fail(std::string("Integer out of range for \"") + key + "\"");
  }
  return v.get<int64_t>();
}

double floating(const Json& v, const std::string& what) {
  if (!v.is_number()) fail("Expected a number for " + what);
  return v.get<double>();
}

bool boolean(const Json& object, const char* key) {
  const Json& v = member(object, key);
  if (!v.is_boolean()) fail(std::string("Expected a boolean for \"") + key + "\"");
  return v.get<bool>();
}

const Json& array(const Json& object, const char* key) {
  const Json& v = member(object, key);
  if (!v.is_array()) fail(std::string("Expected an array for \"") + key + "\"");
  return v;
}

template <typename T>
T fromJson(const Json& j);

template <>
OcrRegion fromJson<OcrRegion>(const Json& j) {
  OcrRegion r;
  r.text = text(j, "text");
  r.confidence = floating(member(j, "confidence"), "\"confidence\"");
  for (const Json& point : array(j, "polygon")) {
    if (!point.is_array()) fail("Expected a point array in \"polygon\"");
    std::vector<double> p;
    for (const Json& coordinate : point) p.push_back(floating(coordinate, "a polygon coordinate"));
    r.polygon.push_back(std::move(p));
  }
  return r;
}

template <>
OcrPage fromJson<OcrPage>(const Json& j) {
  OcrPage p;
  p.page = integer(j, "page");
  p.text = text(j, "text");
  p.width = integer(j, "width");
  p.height = integer(j, "height");
  if (auto it = j.find("imagePath"); it != j.end() && !it->is_null()) {
    if (!it->is_string()) fail("Expected text for \"imagePath\"");
    p.imagePath = it->get<std::string>();
  }
  for (const Json& r : array(j, "regions")) p.regions.push_back(fromJson<OcrRegion>(r));
  return p;
}

template <>
Metadata fromJson<Metadata>(const Json& j) {
  return Metadata{floating(member(j, "elapsedMs"), "\"elapsedMs\"")};
}

template <>
OcrDocument fromJson<OcrDocument>(const Json& j) {
  OcrDocument d;
  d.text = text(j, "text");
  d.pageCount = integer(j, "pageCount");
  for (const Json& p : array(j, "pages")) d.pages.push_back(fromJson<OcrPage>(p));
  d.metadata = fromJson<Metadata>(member(j, "metadata"));
  return d;
}

template <>
PagePreview fromJson<PagePreview>(const Json& j) {
  PagePreview p;
  p.page = integer(j, "page");
  p.imagePath = text(j, "imagePath");
  return p;
}

template <>
SuccessPayload fromJson<SuccessPayload>(const Json& j) {
  SuccessPayload s;
  s.ok = boolean(j, "ok");
  s.resultPath = text(j, "resultPath");
  s.pageCount = integer(j, "pageCount");
  s.textPreview = text(j, "textPreview");
  s.textPath = text(j, "textPath");
  s.truncated = boolean(j, "truncated");
  for (const Json& p : array(j, "pagesPreview")) s.pagesPreview.push_back(fromJson<PagePreview>(p));
  return s;
}

template <>
PayloadError fromJson<PayloadError>(const Json& j) {
  PayloadError e;
  auto code = helperErrorCodeFromRawValue(text(j, "code"));
  if (!code) fail("Unknown error code");
  e.code = *code;
  e.message = text(j, "message");
  return e;
}

template <>
FailurePayload fromJson<FailurePayload>(const Json& j) {
  FailurePayload f;
  f.ok = boolean(j, "ok");
  f.error = fromJson<PayloadError>(member(j, "error"));
  return f;
}

}  // namespace

namespace {

// A double in the shortest form that reads back as the same value: whole
// numbers without a fraction (600, not 600.0), plain decimals from 1e-4 up to
// 1e15 and exponent form outside that range (1e-07, 1e+16).
void writeDouble(double value, std::string& out) {
  const double magnitude = std::fabs(value);
  const auto format = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e15) ? std::chars_format::fixed
                                                                                 : std::chars_format::scientific;
  char buffer[400];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, format);
  out.append(buffer, result.ptr);
}

// Compact output, members in key order (the object map is sorted by key
// bytes). Invalid UTF-8 cannot reach here from the pipeline (texts are made
// valid where they enter it); replacing rather than throwing keeps a stray
// byte from costing the whole result.
void write(const Json& j, std::string& out) {
  switch (j.type()) {
    case Json::value_t::object: {
      out += '{';
      bool first = true;
      for (const auto& [key, member] : j.items()) {
        if (!first) out += ',';
        first = false;
        out += Json(key).dump(-1, ' ', false, Json::error_handler_t::replace);
        out += ':';
        write(member, out);
      }
      out += '}';
      return;
    }
    case Json::value_t::array: {
      out += '[';
      for (size_t i = 0; i < j.size(); ++i) {
        if (i > 0) out += ',';
        write(j[i], out);
      }
      out += ']';
      return;
    }
    case Json::value_t::number_float:
      writeDouble(j.get<double>(), out);
      return;
    default:
      out += j.dump(-1, ' ', false, Json::error_handler_t::replace);
      return;
  }
}

}  // namespace

template <typename Record>
std::string encodeJson(const Record& value) {
  std::string out;
  write(toJson(value), out);
  return out;
}

template <typename Record>
Record decodeJson(std::string_view json) {
  Json parsed = Json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) fail("Malformed JSON");
  return fromJson<Record>(parsed);
}

#define KVO_JSON_RECORD(Record)                            \
  template std::string encodeJson<Record>(const Record&); \
  template Record decodeJson<Record>(std::string_view);

KVO_JSON_RECORD(OcrRegion)
KVO_JSON_RECORD(OcrPage)
KVO_JSON_RECORD(Metadata)
KVO_JSON_RECORD(OcrDocument)
KVO_JSON_RECORD(PagePreview)
KVO_JSON_RECORD(SuccessPayload)
KVO_JSON_RECORD(PayloadError)
KVO_JSON_RECORD(FailurePayload)

}  // namespace kvo
