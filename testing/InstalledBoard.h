/// A board of the program's own in place of the process's for its lifetime; the registers are closed at its end.
#pragma once

#include "public/reg/BoardProviderLoader.h"
#include "public/reg/DriveRegEnyx.h"
#include "software_board/SoftwareBoard.h"

class InstalledProvider {
public:
    explicit InstalledProvider(const VexaBoardProvider& provider, const char* argument = "") {
        UseBoardProvider(&provider, argument);
    }
    ~InstalledProvider() {
        CDrvRegEnyx::GetInstance().Destory();
        UseBoardProvider(nullptr);
    }
    InstalledProvider(const InstalledProvider&) = delete;
    InstalledProvider& operator=(const InstalledProvider&) = delete;
};

/// On its bus, for a provider that leads there.
class BoardOnBus {
public:
    explicit BoardOnBus(software_board::SoftwareBoard& board, uint16_t bus = 0) : m_bus(bus) {
        software_board::InstallBoard(bus, &board);
    }
    ~BoardOnBus() { software_board::InstallBoard(m_bus, nullptr); }
    BoardOnBus(const BoardOnBus&) = delete;
    BoardOnBus& operator=(const BoardOnBus&) = delete;

private:
    uint16_t m_bus;
};

class InstalledBoard {
public:
    explicit InstalledBoard(software_board::SoftwareBoard& board, uint16_t bus = 0) : m_place(board, bus) {}

private:
    BoardOnBus m_place;  // outlives the registers
    InstalledProvider m_provider{software_board::Provider()};
};
