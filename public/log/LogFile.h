/// Files that stand beside the log: where they lie, how they are opened safely, how bytes reach them.
#pragma once

#include <cstddef>
#include <string>

namespace log_file {

/// `path` as the configuration gives it: a directory (existing, or a text ending in "/") gets `name` inside it; any
/// other text is put in front of `name`; empty is the working directory.
std::string Place(const std::string& path, const std::string& name);

/// Opens for appending, owner-only, never through a symbolic link, never waiting; what is no regular file of one link
/// is refused. With `isNew` the file must not exist yet. The descriptor, or -1 with errno.
int OpenAppend(const std::string& file, bool isNew);

/// Writes all of it or tells that it could not: interrupted calls are tried again a bounded number of times, a full
/// disk or an exceeded file size limit is a failure and no signal. Async-signal-safe. Returns the bytes written.
std::size_t WriteWhole(int file, const void* data, std::size_t size);

}  // namespace log_file
