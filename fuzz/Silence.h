/// Takes every line of the log, so that lines are formatted and none is kept.
#pragma once

#include "public/log/CommonLog.h"

namespace fuzz {

class Silence : public ILogSink {
public:
    Silence() { CCommonLog::GetInstance().SetSink(this); }
    ~Silence() override { CCommonLog::GetInstance().SetSink(nullptr); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

    void OnLine(ELOGLEVEL, const char*, std::size_t) override {}
};

}  // namespace fuzz
