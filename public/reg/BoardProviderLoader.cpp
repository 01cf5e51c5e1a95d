// Which board answers. Session thread, once in a process. In: VEXA_BOARD_PROVIDER. Out: a checked table of operations.
// Without a word from the user nothing but the card's own provider is ever loaded.
#include "public/reg/BoardProviderLoader.h"

#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "public/log/LogLine.h"
#include "public/reg/SharedObject.h"

namespace {

constexpr const char* VARIABLE = "VEXA_BOARD_PROVIDER";
constexpr const char* CARD_LIBRARY = "libvexa_board.so";
constexpr const char* SOFTWARE_LIBRARY = "libvexa_software_board.so";

constexpr uint32_t OLDEST_VERSION = 1;
constexpr std::size_t TABLE_BYTES_OF_VERSION_1 = offsetof(VexaBoardProvider, last_error);

BoardProviderChoice g_choice;

bool TellsErrors(const VexaBoardProvider& provider) { return provider.version > OLDEST_VERSION; }

/// A provider library of ours lies beside this library; elsewhere the loader's own search finds it.
std::string BesideThisLibrary(const char* name) {
    Dl_info here{};
    dladdr(reinterpret_cast<const void*>(&LoadBoardProvider), &here);
    if (here.dli_fname == nullptr) return "";
    const std::string_view path = here.dli_fname;
    return std::string(path.substr(0, path.rfind('/') + 1)) + name;  // without a directory: looked for everywhere
}

/// Null with the reason. The empty text would name the process itself; what is named by its path is looked at first,
/// since the loader waits on a FIFO and takes a cut file for whole.
void* Open(const std::string& library, std::string& reason) {
    if (library.empty()) return nullptr;
    reason = library.find('/') == std::string::npos ? "" : WhyNoSharedObject(library);
    if (!reason.empty()) return nullptr;
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr) return handle;
    const char* told = dlerror();
    reason = told == nullptr ? "no reason given" : told;
    return nullptr;
}

std::string PathOf(void* handle, const std::string& otherwise) {
    link_map* map = nullptr;
    dlinfo(handle, RTLD_DI_LINKMAP, &map);
    if (map == nullptr) return otherwise;
    // The loader keeps the path as it was looked for, which says little once the process has changed directory.
    const std::unique_ptr<char, decltype(&std::free)> absolute(realpath(map->l_name, nullptr), &std::free);
    return absolute == nullptr ? map->l_name : absolute.get();
}

const VexaBoardProvider* Ask(void* handle, const std::string& library) {
    const auto entry = reinterpret_cast<VexaBoardProviderEntry>(dlsym(handle, VEXA_BOARD_PROVIDER_ENTRY));
    if (entry == nullptr) {
        VEXA_LOG(LOG_ERROR, "board provider %s has no function %s", library.c_str(), VEXA_BOARD_PROVIDER_ENTRY);
        return nullptr;
    }
    const VexaBoardProvider* provider = entry();
    const std::string fault = FaultOfBoardProvider(provider);
    if (fault.empty()) return provider;
    VEXA_LOG(LOG_ERROR, "board provider %s cannot be used: %s", library.c_str(), fault.c_str());
    return nullptr;
}

/// What the variable names, as a library to load. Empty, with an error line, for an unknown name.
std::string LibraryOf(const std::string& name) {
    if (name.empty()) return CARD_LIBRARY;
    if (name.find('/') != std::string::npos) return name;
    if (name == "software") return SOFTWARE_LIBRARY;
    VEXA_LOG(LOG_ERROR, "%s=%s: unknown board provider; known are \"software\" and the path of a shared object",
             VARIABLE, name.c_str());
    return "";
}

const VexaBoardProvider* Load(const std::string& name) {
    const std::string library = LibraryOf(name);
    if (library.empty()) return nullptr;
    void* handle = nullptr;
    std::string reason;
    if (library == SOFTWARE_LIBRARY) handle = Open(BesideThisLibrary(SOFTWARE_LIBRARY), reason);
    if (handle == nullptr) handle = Open(library, reason);
    if (handle == nullptr) {
        VEXA_LOG(LOG_ERROR,
                 "board provider %s cannot be loaded (%s); set %s to \"software\" or to the path of a provider",
                 library.c_str(), reason.c_str(), VARIABLE);
        return nullptr;
    }
    const VexaBoardProvider* provider = Ask(handle, library);
    if (provider == nullptr) {
        dlclose(handle);
        return nullptr;
    }
    VEXA_LOG(LOG_INFO, "board provider %s loaded from %s", provider->name, PathOf(handle, library).c_str());
    return provider;
}

}  // namespace

std::string FaultOfBoardProvider(const VexaBoardProvider* provider) {
    if (provider == nullptr) return std::string(VEXA_BOARD_PROVIDER_ENTRY) + " gave no table";
    if (provider->version < OLDEST_VERSION || provider->version > VEXA_BOARD_PROVIDER_VERSION) {
        return "its version is " + std::to_string(provider->version) + ", this library needs " +
               std::to_string(OLDEST_VERSION) + " to " + std::to_string(VEXA_BOARD_PROVIDER_VERSION);
    }
    const std::size_t needed = TellsErrors(*provider) ? sizeof(VexaBoardProvider) : TABLE_BYTES_OF_VERSION_1;
    if (provider->size < needed) {
        return "its table has " + std::to_string(provider->size) + " bytes, version " +
               std::to_string(provider->version) + " has " + std::to_string(needed);
    }
    const std::pair<const char*, bool> required[] = {
        {"name", provider->name != nullptr},
        {"open_registers", provider->open_registers != nullptr},
        {"close_registers", provider->close_registers != nullptr},
        {"write32", provider->write32 != nullptr},
        {"read32", provider->read32 != nullptr},
        {"read64", provider->read64 != nullptr},
        {"open_stream", provider->open_stream != nullptr},
        {"close_stream", provider->close_stream != nullptr},
        {"receive", provider->receive != nullptr},
        {"last_error", !TellsErrors(*provider) || provider->last_error != nullptr},
    };
    for (const auto& [entry, isThere] : required) {
        if (!isThere) return std::string("its table has no ") + entry;
    }
    return "";
}

std::string LastErrorOf(const VexaBoardProvider& provider) {
    const char* text = TellsErrors(provider) ? provider.last_error() : nullptr;
    return text == nullptr || *text == '\0' ? "" : std::string(": ") + text;
}

const BoardProviderChoice& LoadBoardProvider() {
    if (g_choice.provider != nullptr) return g_choice;
    // A process with raised privileges must not load code that its caller names.
    const char* value = secure_getenv(VARIABLE);
    const std::string text = value == nullptr ? "" : value;
    const std::size_t colon = text.find(':');
    g_choice.argument = colon == std::string::npos ? "" : text.substr(colon + 1);
    g_choice.provider = Load(text.substr(0, colon));
    return g_choice;
}

void UseBoardProvider(const VexaBoardProvider* provider, const char* argument) { g_choice = {provider, argument}; }
