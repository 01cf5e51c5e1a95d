#include "tools/CommandLine.h"

#include <cctype>
#include <charconv>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "common/Version.h"
#include "exchange/Faults.h"
#include "tools/Main.h"

namespace {

template <typename Number>
bool ReadWhole(std::string_view text, Number& number) {
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() && end == text.data() + text.size();
}

std::string Shown(double number) {
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), number, std::chars_format::fixed);
    return {text, result.ptr};
}

/// "vexa-board inject" when that is as far as the words could be followed.
std::string FollowedBy(const CLI::App& app) {
    const auto commands = app.get_subcommands();
    return app.get_name() + (commands.empty() ? "" : " " + commands.front()->get_name());
}

std::string CommandsOf(CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands({})) names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

/// The option at the beginning of one of CLI11's texts.
std::string NameIn(const std::string& text) { return text.substr(0, text.find(':')); }

/// Breaks lines between words so that none is longer than `width`, unless a word is.
std::string Wrapped(const std::string& text, std::size_t width) {
    std::string wrapped;
    std::size_t lineLength = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool fits = lineLength == 0 || lineLength + 1 + word.size() <= width;
        if (lineLength > 0) wrapped += fits ? ' ' : '\n';
        lineLength = fits && lineLength > 0 ? lineLength + 1 + word.size() : word.size();
        wrapped += word;
    }
    return wrapped;
}

/// Help that is read without widening the terminal.
class NarrowHelp : public CLI::Formatter {
public:
    std::string make_option_desc(const CLI::Option* option) const override {
        return Wrapped(option->get_description(), WIDTH - get_column_width());
    }
    std::string make_description(const CLI::App* app) const override {
        return Wrapped(CLI::Formatter::make_description(app), WIDTH) + "\n";
    }

private:
    static constexpr std::size_t WIDTH = 79;
};

/// What is wrong, in the words of this project where CLI11's would mislead.
std::string Wrong(CLI::App& app, const CLI::ParseError& error) {
    const bool lacksCommand = !app.get_subcommands({}).empty() && app.get_subcommands().empty();
    const std::vector<std::string> unknown = app.remaining(true);
    if (lacksCommand && unknown.empty()) return "no command given; known are " + CommandsOf(app);
    if (lacksCommand && unknown.front().front() != '-') {
        return "unknown command \"" + unknown.front() + "\"; known are " + CommandsOf(app);
    }
    if (!unknown.empty()) return "unknown option or one word too many: " + unknown.front();
    if (error.get_name() == "ArgumentMismatch") return NameIn(error.what()) + " needs a value";
    std::string text = error.what();
    if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1])) != 0) {
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    }
    return text;
}

}  // namespace

bool ParseCommandLine(CLI::App& app, int argc, const char* const* argv) {
    app.set_version_flag("--version", app.get_name() + " " + VEXA_U50_VERSION_NUMBER, "print the version and exit");
    app.formatter(std::make_shared<NarrowHelp>());
    for (CLI::App* command : app.get_subcommands({})) command->formatter(app.get_formatter());
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        return false;
    } catch (const CLI::ParseError& error) {
        throw UsageError(Wrong(app, error) + "; see " + FollowedBy(app) + " --help");
    }
}

CLI::Validator WholeNumber(uint64_t min, uint64_t max) {
    const std::string range = "from " + std::to_string(min) + " to " + std::to_string(max);
    return CLI::Validator(
        [=](const std::string& text) {
            uint64_t number = 0;
            const bool isIn = ReadWhole(text, number) && number >= min && number <= max;
            return isIn ? std::string() : "\"" + text + "\" is no whole number " + range;
        },
        min == 0 && max >= UINT32_MAX ? "" : range);
}

CLI::Validator Decimal(double min, double max) {
    const std::string range = "from " + Shown(min) + " to " + Shown(max);
    return CLI::Validator(
        [=](const std::string& text) {
            double number = 0;
            const bool isIn = ReadWhole(text, number) && number >= min && number <= max;  // false for a nan
            return isIn ? std::string() : "\"" + text + "\" is no number " + range;
        },
        range);
}

CLI::Validator FaultList() {
    return CLI::Validator(
        [](const std::string& names) {
            exchange::Faults faults;
            std::string error;
            return exchange::ParseFaults(names, faults, error) ? std::string() : error;
        },
        "");
}
