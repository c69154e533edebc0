#pragma once

#include <string>
#include <string_view>

namespace kvo {

// Lexical path operations on absolute paths; nothing touches the disk and
// symbolic links are not resolved.

// Removes empty and "." components and folds ".." into its parent:
// "/a/./b/../c/" gives "/a/c". The root stays "/".
std::string standardizePath(std::string_view path);

// The path without its last component ("/a/b/c.png" gives "/a/b").
std::string parentPath(std::string_view path);

// The last component, trailing slashes ignored ("/a/b/" gives "b").
std::string lastPathComponent(std::string_view path);

// `directory` and `relative` joined by exactly one slash.
std::string joinPath(std::string_view directory, std::string_view relative);

}  // namespace kvo
