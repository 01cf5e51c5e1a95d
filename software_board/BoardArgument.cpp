#include <charconv>
#include <string>

#include "software_board/BoardOptions.h"

namespace software_board {

namespace {

/// A whole number within bounds.
template <typename Number>
bool ParseNumber(std::string_view text, Number lowest, Number highest, Number& number) {
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() && end == text.data() + text.size() && number >= lowest && number <= highest;
}

bool ParseNames(std::string names, exchange::Faults& faults, std::string& error) {
    for (char& c : names) {
        if (c == '+') c = ',';  // a comma already parts the pairs
    }
    return exchange::ParseFaults(names, faults, error);
}

bool ParsePair(std::string_view key, std::string_view value, BoardOptions& options, std::string& error) {
    const auto refuse = [&](const char* allowed) {
        error = std::string(key) + "=" + std::string(value) + ": " + allowed;
        return false;
    };
    exchange::ExchangeOptions& market = options.exchange;
    if (key == "seed") return ParseNumber<uint64_t>(value, 0, UINT64_MAX, market.seed) || refuse("a whole number");
    if (key == "shfe") {
        return ParseNumber(value, 1, SHFE_INST_CAPACITY, market.shfeInstruments) || refuse("1 to 16384 instruments");
    }
    if (key == "ine") {
        return ParseNumber(value, 1, INE_INST_CAPACITY, market.ineInstruments) || refuse("1 to 4096 instruments");
    }
    if (key == "rate") {
        return ParseNumber<uint32_t>(value, 0, 100'000'000, options.updatesPerSecond) ||
               refuse("updates a second, 0 to 100000000; 0 is as fast as they are taken");
    }
    if (key == "lost_after") {
        return ParseNumber<uint32_t>(value, 0, UINT32_MAX, options.lostPacketAfter) || refuse("a number of updates");
    }
    if (key == "faults") return ParseNames(std::string(value), options.faults, error);
    error = "unknown key " + std::string(key) + "; known are seed, shfe, ine, rate, faults, lost_after";
    return false;
}

}  // namespace

bool ParseArgument(std::string_view argument, BoardOptions& options, std::string& error) {
    while (!argument.empty()) {
        const std::size_t comma = argument.find(',');
        const std::string_view pair = argument.substr(0, comma);
        argument = comma == std::string_view::npos ? std::string_view() : argument.substr(comma + 1);
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos) {
            error = "\"" + std::string(pair) + "\" is no key=value pair";
            return false;
        }
        if (!ParsePair(pair.substr(0, equals), pair.substr(equals + 1), options, error)) return false;
    }
    return true;
}

}  // namespace software_board
