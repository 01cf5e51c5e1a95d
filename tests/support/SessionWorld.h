/// A whole session in one process: virtual time, the software board with its exchange, an INI file, the session object
/// and an application that remembers the last record of every instrument.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "software_board/SoftwareBoard.h"
#include "testing/InstalledBoard.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"

enum class Delivery { Callback, Polling };

/// A board with these faults, by name; of lost packets the first comes after 500 updates.
software_board::BoardOptions WithFaults(const std::string& names, uint64_t seed = 1);

class SessionWorld : public CVexaShfeMdSpi {
public:
    explicit SessionWorld(const software_board::BoardOptions& options = {});
    SessionWorld(const SessionWorld&) = delete;
    SessionWorld& operator=(const SessionWorld&) = delete;

    /// Keys of [config] in front of the built-in ones' defaults; channel sections as written.
    std::string configKeys = "shfe2ps=enabled\nine2ps=enabled\n";
    std::string channelSections = "[channel0]\ninsts=all\noptions=recv\n";
    std::string ConfigPath();

    int32_t Start(Delivery delivery);

    /// One receive step of the started form.
    int32_t Step();

    /// Takes up to `updates` updates; false when the session ended first or too many empty steps went by.
    bool Receive(uint64_t updates);

    /// Lets every instrument move once more, takes everything, and tells whether all of it arrived.
    bool ReceiveTheRest();

    /// Names of the instruments of enabled feeds whose last record differs from the exchange's truth.
    std::vector<std::string> DifferencesFromTruth(const std::vector<EMDQPDataType>& feeds = {SHFE_2PS, INE_2PS});

    void OnVexaShfeMd(VexaShfeMdType& md) override { Remember(md); }

    ManualClock clock;
    LogCapture log;
    software_board::SoftwareBoard board;
    TemporaryDirectory directory{"vexa-session"};
    InstalledBoard installed{board};
    std::unique_ptr<TestableApi> api;

    std::map<std::string, VexaShfeMdType> last;  ///< by identifier
    uint64_t updates = 0;

private:
    void Remember(const VexaShfeMdType& md);

    Delivery m_delivery = Delivery::Callback;
    VexaShfeMdType m_record{};
};
