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

/// The server's process as the file tells it; 0 when it tells none.
ProcessId ServerOf(int descriptor) {
    ProcessId server = 0;
    const ssize_t length = pread(descriptor, &server, sizeof server, offsetof(SharedBoard, server));
    return length == sizeof server ? server : 0;
}

}  // namespace

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
        m_board->version = SHARED_BOARD_VERSION;
        m_board->size = sizeof(SharedBoard);
        m_board->server = OwnProcessId();
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
    const std::string none = "no board is served on bus " + std::to_string(bus) + "; start one with: vexa-board serve" +
                             (bus == 0 ? "" : " --bus " + std::to_string(bus));
    const CDescriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        error = errno == ENOENT ? none : path + ": " + Reason();
        return false;
    }
    error = WhyForeign(path, status);
    if (!error.empty()) return false;
    if (static_cast<std::size_t>(status.st_size) != sizeof(SharedBoard)) {
        error = status.st_size == 0 ? none : path + " is of another version; serve it anew";
        return false;
    }
    if (!Map(file.Get(), isReadOnly)) {
        error = path + ": " + Reason();
        return false;
    }
    const uint64_t magic = std::atomic_ref<uint64_t>(m_board->magic).load(std::memory_order_acquire);
    if (magic != SHARED_BOARD_MAGIC || !IsAlive(m_board->server)) {
        error = none;
    } else if (m_board->version != SHARED_BOARD_VERSION || m_board->size != sizeof(SharedBoard)) {
        error = path + " is of another version; serve it anew";
    } else if (m_board->ringLines <= RING_LINES_MAX || m_board->ringLines > RING_LINES) {
        error = path + " is damaged; serve it anew";
    } else {
        return true;
    }
    Close();
    return false;
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
        Store(m_board->isClosed, 1U);
        unlink(m_path.c_str());
        close(m_lock);
        m_lock = -1;
    }
    if (m_board != nullptr) munmap(m_board, sizeof(SharedBoard));
    m_board = nullptr;
}

void SharedMapping::Swap(SharedMapping& other) noexcept {
    std::swap(m_board, other.m_board);
    std::swap(m_path, other.m_path);
    std::swap(m_lock, other.m_lock);
}

}  // namespace software_board
