/// The one way in which bytes reach a file of the library.
#pragma once

#include <cstddef>

/// Writes all of it or tells that it could not: interrupted calls are tried again a bounded number of times, a full
/// disk or an exceeded file size limit is a failure and no signal. Async-signal-safe. Returns the bytes written.
std::size_t WriteWhole(int file, const void* data, std::size_t size);

/// Takes the last bytes of a file away again, where a part of what was to be written whole stands. False where that
/// cannot be done. Async-signal-safe.
bool TakeBack(int file, std::size_t bytes);
