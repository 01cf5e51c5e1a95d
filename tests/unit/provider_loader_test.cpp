#include "public/reg/BoardProviderLoader.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "public/reg/DriveRegEnyx.h"
#include "testing/LogCapture.h"
#include "testing/TemporaryDirectory.h"

using testing::ElementsAre;

namespace fs = std::filesystem;

namespace {

constexpr const char* VARIABLE = "VEXA_BOARD_PROVIDER";

std::string g_thisLibrary;  ///< where the library is told to lie; empty: where it does

}  // namespace

// In front of the C library's.
extern "C" int dladdr(const void* address, Dl_info* info) noexcept {
    static const auto real = reinterpret_cast<int (*)(const void*, Dl_info*)>(dlsym(RTLD_NEXT, "dladdr"));
    const int result = real(address, info);
    if (!g_thisLibrary.empty()) info->dli_fname = g_thisLibrary.c_str();
    return result;
}

namespace {

int32_t OpenRegisters(const char*, uint16_t, uint16_t, VexaBoardRegisters**) { return -1; }
void CloseRegisters(VexaBoardRegisters*) {}
int32_t Write32(VexaBoardRegisters*, uint32_t, uint32_t) { return 0; }
int32_t DoRead32(VexaBoardRegisters*, uint32_t, uint32_t*) { return 0; }
int32_t DoRead64(VexaBoardRegisters*, uint32_t, uint64_t*) { return 0; }
int32_t OpenStream(const char*, uint16_t, const char*, VexaBoardStream**) { return -1; }
void CloseStream(VexaBoardStream*) {}
int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler, void*) { return 0; }
const char* LastError() { return "no card in slot 3"; }

constexpr VexaBoardProvider USABLE{VEXA_BOARD_PROVIDER_VERSION,
                                   sizeof(VexaBoardProvider),
                                   "usable",
                                   OpenRegisters,
                                   CloseRegisters,
                                   Write32,
                                   DoRead32,
                                   DoRead64,
                                   OpenStream,
                                   CloseStream,
                                   Receive,
                                   LastError};

/// The line of a provider that is not loaded.
std::string NotLoaded(const std::string& path, const std::string& reason) {
    return "board provider " + path + " cannot be loaded (" + reason +
           "); set VEXA_BOARD_PROVIDER to \"software\" or to the path of a provider";
}

class ProviderLoader : public testing::Test {
protected:
    ProviderLoader() {
        UseBoardProvider(nullptr);
        unsetenv(VARIABLE);
    }
    ~ProviderLoader() override {
        UseBoardProvider(nullptr);
        unsetenv(VARIABLE);
        g_thisLibrary.clear();
    }

    LogCapture log;
};

}  // namespace

TEST_F(ProviderLoader, WithoutAChoiceOnlyTheCardIsLookedFor) {
    g_thisLibrary = SOFTWARE_BOARD_LIBRARY;
    EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    EXPECT_THAT(log.Texts(), ElementsAre(NotLoaded("libvexa_board.so",
                                                   "libvexa_board.so: cannot open shared object file: No such file or "
                                                   "directory")));
}

TEST_F(ProviderLoader, SoftwareBoardIsFoundBesideThisLibrary) {
    const fs::path place = fs::path(SOFTWARE_BOARD_LIBRARY).parent_path();
    g_thisLibrary = place / "libvexa_shfe_md.so";
    setenv(VARIABLE, "software:seed=7", 1);
    ASSERT_NE(LoadBoardProvider().provider, nullptr);
    EXPECT_EQ(LoadBoardProvider().argument, "seed=7");
    EXPECT_THAT(log.Texts(LOG_INFO), ElementsAre("board provider software loaded from " SOFTWARE_BOARD_LIBRARY));
}

// The loader's own name of it says little once the process has changed directory.
TEST_F(ProviderLoader, PathIsLoggedWhole) {
    const fs::path before = fs::current_path();
    fs::current_path(fs::path(SOFTWARE_BOARD_LIBRARY).parent_path());
    setenv(VARIABLE, "./libvexa_software_board.so", 1);
    EXPECT_NE(LoadBoardProvider().provider, nullptr);
    fs::current_path(before);
    EXPECT_THAT(log.Texts(), ElementsAre("board provider software loaded from " SOFTWARE_BOARD_LIBRARY));
}

TEST_F(ProviderLoader, UnknownNameListsTheKnownOnes) {
    setenv(VARIABLE, "hardware", 1);
    EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("VEXA_BOARD_PROVIDER=hardware: unknown board provider; known are \"software\" "
                            "and the path of a shared object"));
}

TEST_F(ProviderLoader, TextWithASlashIsAPath) {
    setenv(VARIABLE, "/nowhere/board.so", 1);
    EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    EXPECT_THAT(log.Texts(), ElementsAre(NotLoaded("/nowhere/board.so", "No such file or directory")));
}

TEST_F(ProviderLoader, PathThatIsNoRegularFileIsRefusedAndNotWaitedFor) {
    const TemporaryDirectory directory;
    const std::string fifo = directory.Path().string() + "/fifo.so";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path :
         {fifo, directory.Path().string(), std::string("/dev/zero"), std::string("/dev/tty0x")}) {
        log.lines.clear();
        setenv(VARIABLE, path.c_str(), 1);
        EXPECT_EQ(LoadBoardProvider().provider, nullptr);
        EXPECT_THAT(log.Texts(), ElementsAre(NotLoaded(
                                     path, path == "/dev/tty0x" ? "No such file or directory" : "no regular file")));
    }
}

TEST_F(ProviderLoader, FileThatIsNoSharedObjectIsRefused) {
    const TemporaryFile text{"[config]\n"};
    const TemporaryFile empty{""};
    for (const TemporaryFile* file : {&text, &empty}) {
        log.lines.clear();
        setenv(VARIABLE, file->Path().c_str(), 1);
        EXPECT_EQ(LoadBoardProvider().provider, nullptr);
        EXPECT_THAT(log.Texts(), ElementsAre(NotLoaded(file->Path(), "no shared object for this machine")));
    }
}

// At whatever byte: of what is cut behind the sections' headers the file tells.
TEST_F(ProviderLoader, SharedObjectCutAnywhereIsRefused) {
    std::ifstream file(SOFTWARE_BOARD_LIBRARY, std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    ASSERT_GT(whole.size(), 4096U);
    for (const std::size_t size : {whole.size() - 1, whole.size() - 64, whole.size() / 2, std::size_t{4096},
                                   std::size_t{65}, std::size_t{64}, std::size_t{63}, std::size_t{1}}) {
        const TemporaryFile cut{whole.substr(0, size)};
        log.lines.clear();
        setenv(VARIABLE, cut.Path().c_str(), 1);
        EXPECT_EQ(LoadBoardProvider().provider, nullptr) << size;
        EXPECT_THAT(log.Texts(), ElementsAre(NotLoaded(cut.Path(), size < 64 ? "no shared object for this machine"
                                                                             : "cut: shorter than its headers say")));
    }
}

TEST_F(ProviderLoader, ArgumentFollowsTheFirstColon) {
    for (const auto& [text, argument] : {std::pair{"/nowhere/board.so:a:b", "a:b"},
                                         {"/nowhere/board.so", ""},
                                         {"/nowhere/board.so:", ""},
                                         {":a", "a"}}) {
        setenv(VARIABLE, text, 1);
        EXPECT_EQ(LoadBoardProvider().argument, argument) << text;
    }
    EXPECT_EQ(log.Texts()[3], NotLoaded("libvexa_board.so",
                                        "libvexa_board.so: cannot open shared object file: No such file or directory"));
}

TEST_F(ProviderLoader, LibraryWithoutTheEntryIsRefused) {
    Dl_info standard{};
    ASSERT_NE(dladdr(reinterpret_cast<const void*>(&std::getenv), &standard), 0);
    setenv(VARIABLE, standard.dli_fname, 1);
    EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre(std::string("board provider ") + standard.dli_fname +
                                                  " has no function vexa_board_provider"));
}

TEST_F(ProviderLoader, ProviderThatCannotBeUsedIsToldAndNotKept) {
    setenv(VARIABLE, NEWER_PROVIDER_LIBRARY, 1);
    EXPECT_EQ(LoadBoardProvider().provider, nullptr);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("board provider " NEWER_PROVIDER_LIBRARY
                                                  " cannot be used: its version is 99, this library needs 1 to 2"));
    EXPECT_EQ(dlopen(NEWER_PROVIDER_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(ProviderLoader, SoftwareBoardIsLoadedFromItsPathWhichIsLogged) {
    setenv(VARIABLE, SOFTWARE_BOARD_LIBRARY ":seed=7,shfe=3,ine=3", 1);
    ASSERT_NE(LoadBoardProvider().provider, nullptr);
    EXPECT_EQ(LoadBoardProvider().argument, "seed=7,shfe=3,ine=3");
    EXPECT_THAT(log.Texts(), ElementsAre("board provider software loaded from " SOFTWARE_BOARD_LIBRARY));
    const CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
    ASSERT_EQ(registers.Init(0, 474), 0);
    EXPECT_EQ(registers.WriteRegister(0x0101, 42), 0);
    registers.Destory();
}

TEST_F(ProviderLoader, ArgumentThatTheProviderRefusesFailsTheOpening) {
    setenv(VARIABLE, SOFTWARE_BOARD_LIBRARY ":colour=red", 1);
    EXPECT_LT(CDrvRegEnyx::GetInstance().Init(1, 474), 0);
    EXPECT_TRUE(log.Has(LOG_ERROR,
                        "board provider software: the registers of bus 1, core 474 cannot be opened (-1): unknown key "
                        "colour; known are seed, shfe, ine, rate, faults, lost_after"));
}

TEST_F(ProviderLoader, ProviderInPlaceIsNotLookedFor) {
    UseBoardProvider(&USABLE, "text");
    EXPECT_EQ(LoadBoardProvider().provider, &USABLE);
    EXPECT_EQ(LoadBoardProvider().argument, "text");
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(ProviderLoader, FailedLoadIsTriedAgain) {
    LoadBoardProvider();
    LoadBoardProvider();
    EXPECT_EQ(log.Texts(LOG_ERROR).size(), 2U);
}

TEST_F(ProviderLoader, RegistersAndStreamFailWithoutAProvider) {
    EXPECT_LT(CDrvRegEnyx::GetInstance().Init(0, 474), 0);
    CDrvDMAEnyx stream;
    EXPECT_LT(stream.Init(0, CQelCharArray<64>("CUSTOM_CHAN0_DATA")), 0);
}

TEST_F(ProviderLoader, WholeTableIsUsable) { EXPECT_EQ(FaultOfBoardProvider(&USABLE), ""); }

TEST_F(ProviderLoader, MissingTableIsNamed) {
    EXPECT_EQ(FaultOfBoardProvider(nullptr), "vexa_board_provider gave no table");
}

TEST_F(ProviderLoader, OtherVersionIsRefused) {
    VexaBoardProvider provider = USABLE;
    provider.version = 3;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "its version is 3, this library needs 1 to 2");
    provider.version = 0;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "its version is 0, this library needs 1 to 2");
}

TEST_F(ProviderLoader, TableOfVersion1EndsBeforeLastError) {
    VexaBoardProvider provider = USABLE;
    provider.version = 1;
    provider.size = 80;
    provider.last_error = nullptr;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "");
    EXPECT_EQ(LastErrorOf(provider), "");
    provider.size = 79;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "its table has 79 bytes, version 1 has 80");
}

// What lies behind a version 1 table is not the provider's to have written.
TEST_F(ProviderLoader, TableOfVersion1IsNotReadBeyondItsEnd) {
    const std::vector<unsigned char> bytes(80);
    std::memcpy(const_cast<unsigned char*>(bytes.data()), &USABLE, bytes.size());
    auto* provider = reinterpret_cast<VexaBoardProvider*>(const_cast<unsigned char*>(bytes.data()));
    provider->version = 1;
    provider->size = 80;
    UseBoardProvider(provider);
    EXPECT_EQ(FaultOfBoardProvider(provider), "");
    EXPECT_LT(CDrvRegEnyx::GetInstance().Init(4, 474), 0);
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("board provider usable: the registers of bus 4, core 474 cannot be opened (-1)"));
}

TEST_F(ProviderLoader, WhyTheProviderRefusedStandsInTheLine) {
    UseBoardProvider(&USABLE);
    EXPECT_LT(CDrvRegEnyx::GetInstance().Init(4, 474), 0);
    CDrvDMAEnyx stream;
    EXPECT_LT(stream.Init(4, CQelCharArray<64>("CUSTOM_CHAN2_DATA")), 0);
    EXPECT_THAT(
        log.Texts(LOG_ERROR),
        ElementsAre("board provider usable: the registers of bus 4, core 474 cannot be opened (-1): no card in slot 3",
                    "board provider usable: the stream CUSTOM_CHAN2_DATA of bus 4 cannot be opened (-1): no card in "
                    "slot 3"));
}

TEST_F(ProviderLoader, ShorterTableIsRefused) {
    VexaBoardProvider provider = USABLE;
    provider.size = 40;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "its table has 40 bytes, version 2 has 88");
}

TEST_F(ProviderLoader, LongerTableIsUsable) {
    VexaBoardProvider provider = USABLE;
    provider.size += 8;
    EXPECT_EQ(FaultOfBoardProvider(&provider), "");
}

TEST_F(ProviderLoader, EveryMissingOperationIsNamed) {
    const auto faultWithout = [](auto VexaBoardProvider::*operation) {
        VexaBoardProvider provider = USABLE;
        provider.*operation = nullptr;
        return FaultOfBoardProvider(&provider);
    };
    EXPECT_EQ(faultWithout(&VexaBoardProvider::name), "its table has no name");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::open_registers), "its table has no open_registers");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::close_registers), "its table has no close_registers");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::write32), "its table has no write32");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::read32), "its table has no read32");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::read64), "its table has no read64");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::open_stream), "its table has no open_stream");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::close_stream), "its table has no close_stream");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::receive), "its table has no receive");
    EXPECT_EQ(faultWithout(&VexaBoardProvider::last_error), "its table has no last_error");
}
