/// Files that stand beside the log: where they lie, how they are opened safely.
#pragma once

#include <string>

namespace log_file {

/// `path` as the configuration gives it: a directory (existing, or a text ending in "/") gets `name` inside it; any
/// other text is put in front of `name`; empty is the working directory.
std::string Place(const std::string& path, const std::string& name);

/// Opens for appending, owner-only, never through a symbolic link, never waiting; what is no regular file of one link
/// is refused. With `isNew` the file must not exist yet. The descriptor, or -1 with errno.
int OpenAppend(const std::string& file, bool isNew);

/// Whether these are two files for certain; a descriptor that cannot be looked at may be of any.
bool AreDifferent(int one, int other);

}  // namespace log_file
