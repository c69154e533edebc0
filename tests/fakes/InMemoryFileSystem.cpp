#include "fakes/InMemoryFileSystem.h"

#include <algorithm>

namespace kvo::fakes {

const char* toString(FsOp op) {
  switch (op) {
    case FsOp::metadata: return "metadata";
    case FsOp::openForReading: return "openForReading";
    case FsOp::read: return "read";
    case FsOp::close: return "close";
    case FsOp::pathState: return "pathState";
    case FsOp::createDirectories: return "createDirectories";
    case FsOp::createDirectory: return "createDirectory";
    case FsOp::listDirectory: return "listDirectory";
    case FsOp::enumerate: return "enumerate";
    case FsOp::writeFileAtomically: return "writeFileAtomically";
  }
  return "?";
}

// An open file: reads come from the node's bytes as they were when it was
// opened; closing is recorded when the object goes away.
class MemoryReadableFile : public ReadableFile {
 public:
  MemoryReadableFile(InMemoryFileSystem& fs, std::string path, std::string bytes, uint64_t size,
                     std::optional<std::system_error> fault)
      : fs_(fs), path_(std::move(path)), bytes_(std::move(bytes)), size_(size), fault_(std::move(fault)) {
    ++fs_.openHandles_;
  }
  ~MemoryReadableFile() override {
    fs_.record(FsOp::close, path_);
    --fs_.openHandles_;
  }

  std::vector<uint8_t> read(size_t count) override {
    fs_.record(FsOp::read, path_, count);
    if (fault_) throw *fault_;
    const uint64_t available = position_ < size_ ? size_ - position_ : 0;
    const size_t n = static_cast<size_t>(std::min<uint64_t>(count, available));
    std::vector<uint8_t> out(n, 0);
    for (size_t i = 0; i < n; ++i) {
      const uint64_t at = position_ + i;
      if (at < bytes_.size()) out[i] = static_cast<uint8_t>(bytes_[static_cast<size_t>(at)]);
    }
    position_ += n;
    return out;
  }

 private:
  InMemoryFileSystem& fs_;
  std::string path_;
  std::string bytes_;
  uint64_t size_;
  uint64_t position_ = 0;
  std::optional<std::system_error> fault_;
};

InMemoryFileSystem::InMemoryFileSystem(EventLog* events) : events_(events) {
  nodes_["/"] = Node{true, {}, 0, nextOrder_++};
}

InMemoryFileSystem::~InMemoryFileSystem() = default;

// ---- path helpers ------------------------------------------------------------

std::string InMemoryFileSystem::normalize(const std::string& path) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    std::string part = path.substr(start, slash - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = slash + 1;
  }
  std::string out;
  for (const auto& part : parts) out += "/" + part;
  return out.empty() ? "/" : out;
}

std::string InMemoryFileSystem::parentOf(const std::string& normalized) {
  const size_t slash = normalized.rfind('/');
  return slash == 0 ? "/" : normalized.substr(0, slash);
}

std::string InMemoryFileSystem::nameOf(const std::string& normalized) {
  return normalized.substr(normalized.rfind('/') + 1);
}

void InMemoryFileSystem::record(FsOp op, const std::string& path, size_t amount) {
  calls_.push_back(FsCall{op, path, amount});
  if (events_) events_->add(std::string("fs.") + toString(op) + " " + path);
}

const InMemoryFileSystem::Node* InMemoryFileSystem::find(const std::string& path) const {
  auto it = nodes_.find(normalize(path));
  return it == nodes_.end() ? nullptr : &it->second;
}

void InMemoryFileSystem::ensureDirectory(const std::string& normalized) {
  if (normalized != "/") ensureDirectory(parentOf(normalized));
  auto it = nodes_.find(normalized);
  if (it == nodes_.end()) nodes_[normalized] = Node{true, {}, 0, nextOrder_++};
}

void InMemoryFileSystem::putFile(const std::string& normalized, std::string bytes, uint64_t size) {
  auto it = nodes_.find(normalized);
  const uint64_t order = it != nodes_.end() ? it->second.order : nextOrder_++;
  nodes_[normalized] = Node{false, std::move(bytes), size, order};
}

std::vector<std::string> InMemoryFileSystem::childrenOf(const std::string& normalized) const {
  std::vector<std::pair<uint64_t, std::string>> found;
  for (const auto& [path, node] : nodes_) {
    if (path != "/" && parentOf(path) == normalized) found.emplace_back(node.order, nameOf(path));
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> names;
  for (auto& [order, name] : found) names.push_back(std::move(name));
  return names;
}

// ---- contents and faults -------------------------------------------------------

void InMemoryFileSystem::addDirectory(const std::string& path) { ensureDirectory(normalize(path)); }

void InMemoryFileSystem::addFile(const std::string& path, std::string bytes) {
  const std::string n = normalize(path);
  ensureDirectory(parentOf(n));
  const uint64_t size = bytes.size();
  putFile(n, std::move(bytes), size);
}

void InMemoryFileSystem::addFileOfSize(const std::string& path, uint64_t size, std::string prefix) {
  const std::string n = normalize(path);
  ensureDirectory(parentOf(n));
  if (prefix.size() > size) prefix.resize(static_cast<size_t>(size));
  putFile(n, std::move(prefix), size);
}

bool InMemoryFileSystem::placeFile(const std::string& path, uint64_t size) {
  const std::string n = normalize(path);
  const Node* parent = find(parentOf(n));
  if (parent == nullptr || !parent->directory) return false;
  if (const Node* existing = find(n); existing != nullptr && existing->directory) return false;
  putFile(n, {}, size);
  return true;
}

void InMemoryFileSystem::failMetadata(const std::string& path) { failMetadata_.insert(normalize(path)); }
void InMemoryFileSystem::overrideMetadata(const std::string& path, FileMetadata metadata) {
  metadataOverrides_[normalize(path)] = metadata;
}
void InMemoryFileSystem::failOpen(const std::string& path) { failOpen_.insert(normalize(path)); }
void InMemoryFileSystem::failRead(const std::string& path, std::system_error error) {
  readFaults_.insert_or_assign(normalize(path), std::move(error));
}
void InMemoryFileSystem::failListing(const std::string& path) { failListing_.insert(normalize(path)); }
void InMemoryFileSystem::failCreateDirectory(const std::string& path) { failCreate_.insert(normalize(path)); }
void InMemoryFileSystem::failEnumerate(const std::string& path) { failEnumerate_.insert(normalize(path)); }
void InMemoryFileSystem::failWrite(const std::string& path) { failWrite_.insert(normalize(path)); }

// ---- inspection ------------------------------------------------------------------

bool InMemoryFileSystem::exists(const std::string& path) const { return find(path) != nullptr; }

bool InMemoryFileSystem::isDirectory(const std::string& path) const {
  const Node* node = find(path);
  return node != nullptr && node->directory;
}

bool InMemoryFileSystem::isFile(const std::string& path) const {
  const Node* node = find(path);
  return node != nullptr && !node->directory;
}

std::optional<std::string> InMemoryFileSystem::contents(const std::string& path) const {
  const Node* node = find(path);
  if (node == nullptr || node->directory) return std::nullopt;
  return node->bytes;
}

std::optional<uint64_t> InMemoryFileSystem::fileSize(const std::string& path) const {
  const Node* node = find(path);
  if (node == nullptr || node->directory) return std::nullopt;
  return node->size;
}

std::vector<std::string> InMemoryFileSystem::listTree(const std::string& directory) const {
  const std::string root = normalize(directory);
  const std::string prefix = root == "/" ? "/" : root + "/";
  std::vector<std::string> out;
  for (const auto& [path, node] : nodes_) {
    if (path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0) {
      out.push_back(path.substr(prefix.size()) + (node.directory ? "/" : ""));
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

size_t InMemoryFileSystem::count(FsOp op) const {
  return static_cast<size_t>(std::count_if(calls_.begin(), calls_.end(), [&](const FsCall& c) { return c.op == op; }));
}

size_t InMemoryFileSystem::count(FsOp op, const std::string& path) const {
  return static_cast<size_t>(
      std::count_if(calls_.begin(), calls_.end(), [&](const FsCall& c) { return c.op == op && c.path == path; }));
}

// ---- FileSystem ----------------------------------------------------------------

std::optional<FileMetadata> InMemoryFileSystem::metadata(const std::string& path) {
  record(FsOp::metadata, path);
  const std::string n = normalize(path);
  if (failMetadata_.count(n)) return std::nullopt;
  if (auto it = metadataOverrides_.find(n); it != metadataOverrides_.end()) return it->second;
  const Node* node = find(n);
  if (node == nullptr) return std::nullopt;
  if (node->directory) return FileMetadata{false, 4096};
  return FileMetadata{true, node->size};
}

std::unique_ptr<ReadableFile> InMemoryFileSystem::openForReading(const std::string& path) {
  record(FsOp::openForReading, path);
  const std::string n = normalize(path);
  const Node* node = find(n);
  if (failOpen_.count(n) || node == nullptr || node->directory) return nullptr;
  std::optional<std::system_error> fault;
  if (auto it = readFaults_.find(n); it != readFaults_.end()) fault = it->second;
  return std::make_unique<MemoryReadableFile>(*this, path, node->bytes, node->size, std::move(fault));
}

PathState InMemoryFileSystem::pathState(const std::string& path) {
  record(FsOp::pathState, path);
  const Node* node = find(path);
  if (node == nullptr) return PathState::missing;
  return node->directory ? PathState::directory : PathState::notDirectory;
}

bool InMemoryFileSystem::createDirectories(const std::string& path) {
  record(FsOp::createDirectories, path);
  const std::string n = normalize(path);
  if (failCreate_.count(n)) return false;
  // Every missing component, outermost first.
  std::vector<std::string> missing;
  for (std::string at = n;; at = parentOf(at)) {
    const Node* node = find(at);
    if (node != nullptr) {
      if (!node->directory) return false;
      break;
    }
    missing.push_back(at);
    if (at == "/") break;
  }
  std::reverse(missing.begin(), missing.end());
  for (const auto& at : missing) {
    if (failCreate_.count(at)) return false;
    nodes_[at] = Node{true, {}, 0, nextOrder_++};
  }
  return true;
}

bool InMemoryFileSystem::createDirectory(const std::string& path) {
  record(FsOp::createDirectory, path);
  const std::string n = normalize(path);
  if (failCreate_.count(n) || find(n) != nullptr) return false;
  const Node* parent = find(parentOf(n));
  if (parent == nullptr || !parent->directory) return false;
  nodes_[n] = Node{true, {}, 0, nextOrder_++};
  return true;
}

std::optional<std::vector<std::string>> InMemoryFileSystem::listDirectory(const std::string& path) {
  record(FsOp::listDirectory, path);
  const std::string n = normalize(path);
  const Node* node = find(n);
  if (failListing_.count(n) || node == nullptr || !node->directory) return std::nullopt;
  return childrenOf(n);
}

void InMemoryFileSystem::walk(const std::string& normalized, const std::string& shown,
                              const std::function<void(const std::string&)>& visit) const {
  for (const auto& name : childrenOf(normalized)) {
    if (!name.empty() && name.front() == '.') continue;  // hidden: neither yielded nor entered
    const std::string child = normalized == "/" ? "/" + name : normalized + "/" + name;
    const std::string childShown = shown + "/" + name;
    visit(childShown);
    auto it = nodes_.find(child);
    if (it != nodes_.end() && it->second.directory) walk(child, childShown, visit);
  }
}

bool InMemoryFileSystem::enumerate(const std::string& path, const std::function<void(const std::string&)>& visit) {
  record(FsOp::enumerate, path);
  const std::string n = normalize(path);
  const Node* node = find(n);
  if (failEnumerate_.count(n) || node == nullptr || !node->directory) return false;
  std::string shown = path;
  while (!shown.empty() && shown.back() == '/') shown.pop_back();
  walk(n, shown, visit);
  return true;
}

bool InMemoryFileSystem::writeFileAtomically(const std::string& path, std::string_view bytes) {
  record(FsOp::writeFileAtomically, path);
  const std::string n = normalize(path);
  if (failWrite_.count(n)) return false;
  const Node* parent = find(parentOf(n));
  if (parent == nullptr || !parent->directory) return false;
  if (const Node* existing = find(n); existing != nullptr && existing->directory) return false;
  putFile(n, std::string(bytes), bytes.size());
  return true;
}

}  // namespace kvo::fakes
