// Serves a software board to many processes, and looks into one that is being served.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "software_board/SharedClient.h"
#include "tools/BoardServing.h"
#include "tools/BoardText.h"
#include "tools/CommandLine.h"
#include "tools/Main.h"
#include "tools/RegisterNames.h"

namespace {

constexpr uint32_t DEFAULT_RATE = 2000;
constexpr int32_t DEFAULT_INSTRUMENTS = 800;
constexpr int32_t INSTRUMENTS_MAX = SHFE_INST_CAPACITY;

const std::map<std::string, EMDQPDataType> FEEDS_BY_NAME{
    {"shfe2ps", SHFE_2PS}, {"shfe4ps", SHFE_4PS}, {"ine2ps", INE_2PS}, {"ine4ps", INE_4PS}};

struct Arguments {
    uint16_t bus = 0;
    uint64_t seed = 1;
    int32_t instruments = DEFAULT_INSTRUMENTS;
    uint32_t rate = DEFAULT_RATE;
    std::string faults;
    bool areAllShown = false;
    std::vector<std::string> addresses;
    std::string feed;
    std::string instrument;
    std::string fault;
    bool areCleared = false;
};

std::string CheckFeed(const std::string& name) {
    return FEEDS_BY_NAME.count(name) == 1 ? ""
                                          : "unknown feed \"" + name + "\"; known are shfe2ps, shfe4ps, ine2ps, ine4ps";
}

std::string CheckRegister(const std::string& address) {
    return FindRegister(address) ? ""
                                 : "\"" + address + "\" is neither a register's name nor an index from 0 to 0x2ffff";
}

void Attach(software_board::SharedMapping& mapping, uint16_t bus, bool isReadOnly) {
    std::string error;
    if (!mapping.Attach(bus, isReadOnly, error)) throw std::runtime_error(error);
}

int Serve(const Arguments& arguments) {
    software_board::BoardOptions options;
    options.exchange.seed = arguments.seed;
    options.exchange.ineInstruments = std::max(1, arguments.instruments / 4);
    options.exchange.shfeInstruments = std::max(1, arguments.instruments - options.exchange.ineInstruments);
    options.updatesPerSecond = arguments.rate;
    std::string error;
    if (!exchange::ParseFaults(arguments.faults, options.faults, error)) throw std::runtime_error(error);
    return ServeBoard(arguments.bus, options);
}

void ShowRegisters(const Arguments& arguments) {
    software_board::SharedMapping board;
    Attach(board, arguments.bus, true);
    for (const std::string& address : arguments.addresses) PrintRegister(*board, address);
    if (arguments.addresses.empty()) PrintRegisters(*board, arguments.areAllShown);
}

void Inject(const Arguments& arguments) {
    if (arguments.areCleared == !arguments.fault.empty()) {
        throw CLI::ValidationError("inject needs either a FAULT or --clear");
    }
    software_board::SharedMapping board;
    Attach(board, arguments.bus, false);
    std::string text = arguments.fault;
    const auto request = arguments.areCleared ? software_board::CLEAR_FAULTS : software_board::INJECT_FAULTS;
    if (!software_board::AskServer(board, board->injection, request, 0, text))
        throw std::runtime_error(Printable(text));
    std::printf("%s\n", arguments.areCleared ? "all faults cleared" : arguments.fault.c_str());
}

int Run(int argc, char** argv) {
    Arguments arguments;
    int status = 0;
    CLI::App app(
        "Serves a software board to the processes of this user, and looks into one that is being served.\n"
        "Exit status: 0 when all went well, 1 when there is no such board or the request was refused, 2 for wrong "
        "options.");
    app.name("vexa-board");
    app.require_subcommand(1);
    const auto command = [&](const char* name, const char* text) {
        CLI::App* made = app.add_subcommand(name, text);
        made->add_option("--bus", arguments.bus, "the board's bus number, as in device=xilinx<bus>:<channel>")
            ->check(WholeNumber(0, UINT16_MAX))
            ->capture_default_str();
        return made;
    };

    CLI::App* serve = command("serve", "keep a board until interrupted (Ctrl-C)");
    serve->add_option("--seed", arguments.seed, "the same seed gives the same exchange")
        ->check(WholeNumber(0, UINT64_MAX))
        ->capture_default_str();
    serve->add_option("--instruments", arguments.instruments, "three quarters of SHFE, one of INE")
        ->check(WholeNumber(2, INSTRUMENTS_MAX))
        ->capture_default_str();
    serve->add_option("--rate", arguments.rate, "updates a second")
        ->check(WholeNumber(1, 1'000'000))
        ->capture_default_str();
    serve->add_option("--faults", arguments.faults, "comma-separated: " + exchange::FaultNames())->check(FaultList());
    serve->callback([&] { status = Serve(arguments); });

    command("status", "board, channels and feeds")->callback([&] {
        software_board::SharedMapping board;
        Attach(board, arguments.bus, true);
        PrintStatus(*board, arguments.bus);
    });

    CLI::App* registers = command("registers", "registers by name, those that are not 0");
    registers->add_flag("--all", arguments.areAllShown, "also those that are 0");
    registers->add_option("ADDR", arguments.addresses, "names or indices, such as CONFIG_CHECKSUM or 0x1001")
        ->check(CheckRegister);
    registers->callback([&] { ShowRegisters(arguments); });

    CLI::App* table = command("table", "a feed's instrument slots as the board holds them");
    table->add_option("FEED", arguments.feed, "shfe2ps, shfe4ps, ine2ps or ine4ps")->required()->check(CheckFeed);
    table->add_option("--instrument", arguments.instrument, "only this instrument");
    table->callback([&] {
        software_board::SharedMapping board;
        Attach(board, arguments.bus, true);
        PrintTable(*board, FEEDS_BY_NAME.at(arguments.feed), arguments.instrument);
    });

    CLI::App* inject = command("inject", "let faults happen on a running board, or end them");
    inject->add_option("FAULT", arguments.fault, "comma-separated, each with @N or without: " + exchange::FaultNames())
        ->check(FaultList());
    inject->add_flag("--clear", arguments.areCleared,
                     "end every fault, those that last and those to come; connections under way keep theirs");
    inject->callback([&] { Inject(arguments); });

    ParseCommandLine(app, argc, argv);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    return RunProgram("vexa-board", [&] { return Run(argc, argv); });
}
