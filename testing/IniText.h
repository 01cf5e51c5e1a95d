/// Builds the texts of configuration files: IniText().Section("config").Key("log_level", 7).Channel(0, "all").
#pragma once

#include <concepts>
#include <string>

class IniText {
public:
    IniText& Section(const std::string& name) { return Line("[" + name + "]"); }
    IniText& Key(const std::string& key, const std::string& value) { return Line(key + "=" + value); }
    IniText& Key(const std::string& key, std::integral auto value) { return Key(key, std::to_string(value)); }
    IniText& Line(const std::string& line) { return Lines(line + "\n"); }
    /// As they stand, each with its end of line.
    IniText& Lines(const std::string& lines) {
        m_text += lines;
        return *this;
    }

    /// Which session of which board the file is for.
    IniText& Device(int bus, int channel) {
        return Key("device", "xilinx" + std::to_string(bus) + ":" + std::to_string(channel));
    }
    IniText& Enabled(const std::string& feed, bool isEnabled = true) {
        return Key(feed, isEnabled ? "enabled" : "disabled");
    }
    /// What a channel receives.
    IniText& Channel(int channel, const std::string& insts, bool hasOptions = true) {
        return Section("channel" + std::to_string(channel))
            .Key("insts", insts)
            .Key("options", hasOptions ? "recv" : "norecv");
    }

    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};
