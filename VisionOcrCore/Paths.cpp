#include "VisionOcrCore/Paths.h"

#include <vector>

namespace kvo {

namespace {

std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) slash = path.size();
    if (slash > start) parts.push_back(path.substr(start, slash - start));
    start = slash + 1;
  }
  return parts;
}

std::string join(const std::vector<std::string_view>& parts) {
  std::string out;
  for (auto part : parts) {
    out += '/';
    out += part;
  }
  return out.empty() ? "/" : out;
}

}  // namespace

std::string standardizePath(std::string_view path) {
  std::vector<std::string_view> kept;
  for (auto part : components(path)) {
    if (part == ".") continue;
    if (part == "..") {
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    kept.push_back(part);
  }
  return join(kept);
}

std::string parentPath(std::string_view path) {
  auto parts = components(path);
  if (!parts.empty()) parts.pop_back();
  return join(parts);
}

std::string lastPathComponent(std::string_view path) {
  auto parts = components(path);
  return parts.empty() ? std::string("/") : std::string(parts.back());
}

std::string joinPath(std::string_view directory, std::string_view relative) {
  std::string out(directory);
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  if (out != "/") out += '/';
  while (!relative.empty() && relative.front() == '/') relative.remove_prefix(1);
  out += relative;
  return out;
}

}  // namespace kvo
