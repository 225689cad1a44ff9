// Files that are on the disk when a call returns, whatever ends afterwards.

#ifndef SAVE_DURABLE_FILE_H_
#define SAVE_DURABLE_FILE_H_

#include <cstddef>
#include <filesystem>
#include <string>

namespace save {

// Makes `path` hold `text`: all of it or, when this throws, what it held before. Throws
// std::system_error.
void WriteDurably(const std::filesystem::path& path, const std::string& text);

// Removes the file if it is there. Throws std::system_error.
void RemoveDurably(const std::filesystem::path& path);

// Brings to the disk what a file, or the names in a directory, hold now. Throws std::system_error.
void Sync(const std::filesystem::path& path);

// Throws std::system_error unless a new file at `path` can have that many bytes. Leaves no file at
// `path`.
void RequireRoom(const std::filesystem::path& path, std::size_t bytes);

}  // namespace save

#endif  // SAVE_DURABLE_FILE_H_
