#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "fakes/EventLog.h"
#include "interfaces/FileSystem.h"

namespace kvo::fakes {

enum class FsOp {
  metadata,
  openForReading,
  read,
  close,
  pathState,
  createDirectories,
  createDirectory,
  listDirectory,
  enumerate,
  writeFileAtomically,
};

const char* toString(FsOp op);

// One call the code under test made, with the path exactly as it was given.
struct FsCall {
  FsOp op;
  std::string path;
  size_t amount = 0;  // bytes asked for, for reads
};

// A file system held in memory, in the manner of a virtual file system for
// tests: files with bytes, or with a declared size and only a stored prefix
// (so that gigabyte totals cost nothing), directories, and hidden entries
// (names beginning with "."). Paths are compared after removing empty and "."
// components and folding "..", as a real file system resolves them.
//
// Faults are injected per path; every call is recorded so that tests can say
// what was, and what was never, asked (for example: "the input was never
// opened", "the new directory was not listed").
class InMemoryFileSystem : public FileSystem {
 public:
  explicit InMemoryFileSystem(EventLog* events = nullptr);
  ~InMemoryFileSystem() override;

  // ---- contents (parents are created as needed) ---------------------------
  void addDirectory(const std::string& path);
  void addFile(const std::string& path, std::string bytes);
  // A file that reports `size` bytes and stores only `prefix`; reading past
  // the prefix yields zero bytes.
  void addFileOfSize(const std::string& path, uint64_t size, std::string prefix = {});
  // Places a file for another fake (the PNG writer); fails like a real
  // create would when the parent is not an existing directory or a
  // directory stands at `path`. Not recorded as a call.
  bool placeFile(const std::string& path, uint64_t size);

  // ---- faults --------------------------------------------------------------
  void failMetadata(const std::string& path);
  // metadata() answers exactly this for the path (e.g. an unknown flag).
  void overrideMetadata(const std::string& path, FileMetadata metadata);
  void failOpen(const std::string& path);
  void failRead(const std::string& path, std::system_error error);
  void failListing(const std::string& path);
  // Both createDirectory and createDirectories fail for the path.
  void failCreateDirectory(const std::string& path);
  void failEnumerate(const std::string& path);
  void failWrite(const std::string& path);

  // ---- inspection ----------------------------------------------------------
  bool exists(const std::string& path) const;
  bool isDirectory(const std::string& path) const;
  bool isFile(const std::string& path) const;
  // The stored bytes of a file (only the prefix for declared-size files).
  std::optional<std::string> contents(const std::string& path) const;
  std::optional<uint64_t> fileSize(const std::string& path) const;
  // Sorted paths relative to `directory` of everything below it;
  // directories end in "/".
  std::vector<std::string> listTree(const std::string& directory) const;

  const std::vector<FsCall>& calls() const { return calls_; }
  size_t count(FsOp op) const;
  size_t count(FsOp op, const std::string& path) const;  // path as given
  bool wasCalled(FsOp op, const std::string& path) const { return count(op, path) > 0; }
  // Files opened for reading and not yet closed.
  int openHandles() const { return openHandles_; }

  // ---- FileSystem ----------------------------------------------------------
  std::optional<FileMetadata> metadata(const std::string& path) override;
  std::unique_ptr<ReadableFile> openForReading(const std::string& path) override;
  PathState pathState(const std::string& path) override;
  bool createDirectories(const std::string& path) override;
  bool createDirectory(const std::string& path) override;
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) override;
  bool enumerate(const std::string& path, const std::function<void(const std::string&)>& visit) override;
  bool writeFileAtomically(const std::string& path, std::string_view bytes) override;

 private:
  friend class MemoryReadableFile;

  struct Node {
    bool directory = false;
    std::string bytes;  // all bytes, or the stored prefix
    uint64_t size = 0;
    uint64_t order = 0;  // creation order: listings follow it
  };

  static std::string normalize(const std::string& path);
  static std::string parentOf(const std::string& normalized);
  static std::string nameOf(const std::string& normalized);

  void record(FsOp op, const std::string& path, size_t amount = 0);
  const Node* find(const std::string& path) const;
  void ensureDirectory(const std::string& normalized);
  void putFile(const std::string& normalized, std::string bytes, uint64_t size);
  std::vector<std::string> childrenOf(const std::string& normalized) const;  // names, in order
  void walk(const std::string& normalized, const std::string& shown,
            const std::function<void(const std::string&)>& visit) const;

  EventLog* events_;
  std::map<std::string, Node> nodes_;
  uint64_t nextOrder_ = 0;
  std::vector<FsCall> calls_;
  int openHandles_ = 0;

  std::set<std::string> failMetadata_, failOpen_, failListing_, failCreate_, failEnumerate_, failWrite_;
  std::map<std::string, FileMetadata> metadataOverrides_;
  std::map<std::string, std::system_error> readFaults_;
};

}  // namespace kvo::fakes
