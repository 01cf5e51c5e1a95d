/// Services that fail on demand. A program that uses them is linked with `--wrap` for each of them.
#pragma once

#include <set>

struct FailingSystem {
    bool isReadShort = false;      ///< fread gives one byte less than there is
    bool isChecksumOff = false;    ///< the checksum routine reports a failure
    std::set<int> refusedSignals;  ///< whose handlers cannot be installed

    static FailingSystem& Get();
};
