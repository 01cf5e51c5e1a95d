#include "public/file/RegularFile.h"

#include <fcntl.h>
#include <unistd.h>

#include "public/file/Descriptor.h"

bool IsOwnFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == geteuid();
}

int OpenRegularFile(const char* path) {
    CDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return -1;
    return file.Release();
}
