/// A section whose every line is logged whatever is configured.
#pragma once

#include "public/log/CommonLog.h"

class CRaisedLogLevel {
public:
    /// `configured` is in force again when the section ends, be it left by an error.
    explicit CRaisedLogLevel(int32_t configured) : m_configured(configured) {
        CCommonLog::GetInstance().SetLogLevel(LOG_ALL);
    }
    ~CRaisedLogLevel() { End(); }
    CRaisedLogLevel(const CRaisedLogLevel&) = delete;
    CRaisedLogLevel& operator=(const CRaisedLogLevel&) = delete;

    /// Puts the configured level in force before the section's end; again, it does nothing.
    void End() {
        if (m_isRaised) CCommonLog::GetInstance().SetLogLevel(m_configured);
        m_isRaised = false;
    }

    /// Everything is logged after the section, too.
    void LeaveRaised() { m_isRaised = false; }

private:
    int32_t m_configured;
    bool m_isRaised = true;
};
