// Who serves is told by a lock on the file: the system takes it away with the process, however that ends. The process
// number in the memory is for messages and for those who only attach.
#include "software_board/SharedMemory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "public/file/Descriptor.h"

namespace software_board {

namespace {

constexpr int CREATE_TRIES = 16;

std::string Reason() { return std::strerror(errno); }

/// Empty when the file is an ordinary one of our own.
std::string WhyForeign(const std::string& path, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return path + " is no regular file; remove it";
    if (status.st_uid == geteuid()) return "";
    const passwd* owner = getpwuid(status.st_uid);
    return path + " belongs to " + (owner != nullptr ? owner->pw_name : std::to_string(status.st_uid)) +
           "; take another bus number";
}

/// A word of the board in the file; 0 when the file does not reach there.
template <typename Word>
Word WordOf(int descriptor, std::size_t offset) {
    Word word = 0;
    return pread(descriptor, &word, sizeof word, static_cast<off_t>(offset)) == sizeof word ? word : 0;
}

ProcessId ServerOf(int descriptor) { return WordOf<ProcessId>(descriptor, offsetof(SharedBoard, server)); }

/// Those who are still attached to a crashed server's board look at this word.
void TellItHasEnded(int descriptor, const struct stat& status) {
    if (static_cast<std::size_t>(status.st_size) != sizeof(SharedBoard)) return;
    if (WordOf<uint32_t>(descriptor, offsetof(SharedBoard, version)) != SHARED_BOARD_VERSION) return;
    constexpr uint32_t HAS_ENDED = 1;
    if (pwrite(descriptor, &HAS_ENDED, sizeof HAS_ENDED, offsetof(SharedBoard, hasEnded)) < 0) {
        return;  // they find out by themselves
    }
}

std::string NoneServed(uint16_t bus) {
    return "no board is served on bus " + std::to_string(bus) + "; start one with: vexa-board serve" +
           (bus == 0 ? "" : " --bus " + std::to_string(bus));
}

}  // namespace

std::string TextOf(const RequestBox& box) {
    std::string text(box.text, sizeof box.text);
    text.resize(strnlen(text.c_str(), text.size()));
    return text;
}

std::string SharedBoardPath(uint16_t bus) { return "/dev/shm/vexa-board-" + std::to_string(bus); }

bool SharedMapping::Create(uint16_t bus, std::string& error) {
    Close();
    const std::string path = SharedBoardPath(bus);
    for (int tried = 0; tried < CREATE_TRIES; ++tried) {
        CDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
        struct stat status {};
        if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
            error = path + ": " + Reason();
            return false;
        }
        error = WhyForeign(path, status);
        if (!error.empty()) return false;
        if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
            error = "bus " + std::to_string(bus) + " is being served by process " +
                    std::to_string(ProcessNumber(ServerOf(file.Get()))) + "; stop it, or take another bus number";
            return false;
        }
        if (fstat(file.Get(), &status) != 0 || status.st_nlink == 0) continue;  // removed by its last server
        if (status.st_size != 0) {
            // Left by a crash. Those who are still attached keep the old file; the new board is another one.
            TellItHasEnded(file.Get(), status);
            unlink(path.c_str());
            continue;
        }
        // Reserved as a whole, so that a full file system is told here and not by a signal at some later store.
        errno = posix_fallocate(file.Get(), 0, sizeof(SharedBoard));
        if (errno != 0 || !Map(file.Get(), false)) {
            error = path + ": " + Reason();
            unlink(path.c_str());
            return false;
        }
        m_path = path;
        m_lock = file.Release();
        m_server = OwnProcessId();
        Store(m_board->version, SHARED_BOARD_VERSION);
        Store(m_board->size, static_cast<uint32_t>(sizeof(SharedBoard)));
        Store(m_board->server, m_server);
        return true;
    }
    error = path + " is made and removed by others all the time; take another bus number";
    return false;
}

void SharedMapping::Publish() {
    std::atomic_ref<uint64_t>(m_board->magic).store(SHARED_BOARD_MAGIC, std::memory_order_release);
}

bool SharedMapping::Attach(uint16_t bus, bool isReadOnly, std::string& error) {
    Close();
    const std::string path = SharedBoardPath(bus);
    const CDescriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        error = errno == ENOENT ? NoneServed(bus) : path + ": " + Reason();
        return false;
    }
    error = WhyForeign(path, status);
    if (!error.empty()) return false;
    if (static_cast<std::size_t>(status.st_size) != sizeof(SharedBoard)) {
        error = status.st_size == 0 ? NoneServed(bus) : path + " is of another version; serve it anew";
        return false;
    }
    if (!Map(file.Get(), isReadOnly)) {
        error = path + ": " + Reason();
        return false;
    }
    error = WhyUnusable(bus);
    if (error.empty()) return true;
    Close();
    return false;
}

// Each word is read once: whoever may write them may do so between a check and a use.
std::string SharedMapping::WhyUnusable(uint16_t bus) {
    const uint64_t magic = std::atomic_ref<uint64_t>(m_board->magic).load(std::memory_order_acquire);
    m_server = Load(m_board->server);
    m_ringLines = Load(m_board->ringLines);
    if (magic != SHARED_BOARD_MAGIC || !IsServed()) return NoneServed(bus);
    if (Load(m_board->version) != SHARED_BOARD_VERSION || Load(m_board->size) != sizeof(SharedBoard)) {
        return SharedBoardPath(bus) + " is of another version; serve it anew";
    }
    const bool isSound = m_ringLines > RING_LINES_MAX && m_ringLines <= RING_LINES;
    return isSound ? "" : SharedBoardPath(bus) + " is damaged; serve it anew";
}

bool SharedMapping::Map(int descriptor, bool isReadOnly) {
    const int protection = isReadOnly ? PROT_READ : PROT_READ | PROT_WRITE;
    void* pages = mmap(nullptr, sizeof(SharedBoard), protection, MAP_SHARED, descriptor, 0);
    if (pages == MAP_FAILED) return false;
    madvise(pages, sizeof(SharedBoard), MADV_DONTFORK);
    m_board = static_cast<SharedBoard*>(pages);
    return true;
}

void SharedMapping::Close() {
    if (m_lock >= 0) {
        Store(m_board->hasEnded, 1U);
        struct stat status {};
        // Removed by somebody meanwhile, its name may be another board's by now.
        if (fstat(m_lock, &status) == 0 && status.st_nlink > 0) unlink(m_path.c_str());
        close(m_lock);
        m_lock = -1;
    }
    if (m_board != nullptr) munmap(m_board, sizeof(SharedBoard));
    m_board = nullptr;
}

void SharedMapping::Swap(SharedMapping& other) noexcept {
    std::swap(m_board, other.m_board);
    std::swap(m_server, other.m_server);
    std::swap(m_ringLines, other.m_ringLines);
    std::swap(m_path, other.m_path);
    std::swap(m_lock, other.m_lock);
}

}  // namespace software_board
