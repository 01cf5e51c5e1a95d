/// What the library's files have in common: they are regular ones, and those it writes are its own.
#pragma once

#include <sys/stat.h>

/// Whether the process's user owns the file, under one name alone: what somebody else put there, or what has a second
/// name elsewhere, is not. Async-signal-safe.
bool IsOwnFile(const struct stat& status);

/// Opens a file to read it, without ever waiting on it; the descriptor is the caller's. -1 for what is not there, may
/// not be read or is no regular file. Any thread.
int OpenRegularFile(const char* path);
