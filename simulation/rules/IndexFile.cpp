#include "simulation/rules/IndexFile.h"

#include <cstring>

namespace simulation {
namespace {

constexpr int64_t NANOSECONDS_PER_HOUR = 3'600'000'000'000;
constexpr int64_t EVENING = 17;

std::string TwoDigits(int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

/// Days of the calendar counted one by one, from 2026-01-01 on: sessions stay near that year.
std::string DateText(int64_t days) {
    constexpr int64_t FIRST_DAY = 20454;
    constexpr int64_t DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int64_t left = days - FIRST_DAY;
    int64_t month = 0;
    for (; left >= DAYS[month % 12]; ++month) left -= DAYS[month % 12];
    return std::to_string(2026 + month / 12) + TwoDigits(month % 12 + 1) + TwoDigits(left + 1);
}

void AddLines(std::string& text, const std::vector<SInstTableType>& slots) {
    for (std::size_t number = 0; number < slots.size(); ++number) {
        const SInstTableType& slot = slots[number];
        text += std::to_string(number) + "," + std::string(slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id));
        for (const uint64_t column : {uint64_t{slot.change_no}, uint64_t{slot.open_interest}}) {
            text += "," + std::to_string(column);
        }
        text += "," + std::to_string(slot.last_price) + "," + std::to_string(uint64_t{slot.turnover}) + "," +
                std::to_string(slot.volume);
        text += "," + std::to_string(slot.price_tick) + "," + std::to_string(slot.codec_price) + "," +
                std::to_string(slot.vol_multiple);
        text += "," + std::to_string(slot.upper_limit_price) + "," + std::to_string(slot.lower_limit_price) + "\n";
    }
}

}  // namespace

std::string IndexName(int64_t wallNanoseconds) {
    const int64_t hours = wallNanoseconds / NANOSECONDS_PER_HOUR;
    return "/.shfe_" + DateText(hours / 24) + (hours % 24 < EVENING ? "_am" : "_pm");
}

std::string IndexText(const std::vector<SInstTableType>& shfe, const std::vector<SInstTableType>& ine) {
    std::string text =
        "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,"
        "vol_multiple,upper_limit_price,lower_limit_price\n";
    AddLines(text, shfe);
    AddLines(text, ine);
    return text;
}

}  // namespace simulation
