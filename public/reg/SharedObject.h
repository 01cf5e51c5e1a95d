/// A look at a file before the system's loader takes it for a shared object: the loader waits on a FIFO, and maps a
/// file that was cut as far as its headers say, so that the process dies of the first access behind its end.
#pragma once

#include <string>

/// Why `path` cannot be loaded: no regular file, no shared object of this machine's kind, or shorter than its headers
/// say. Empty when nothing speaks against it. Never waits.
std::string WhyNoSharedObject(const std::string& path);
