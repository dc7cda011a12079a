// Finishing or undoing an edit that was cut short, on request.
#include <fcntl.h>
#include <unistd.h>

#include "stream/safe_edit.h"
#include "tev/editor.h"
#include "util/log.h"

uint32_t recoverTEVFd(int fd) {
    if (fd < 1) {
        tev::logLine(tev::kLogError, "TEVJournal::recoverTEVFd", "fd error");
        return 0;
    }
    const tev::FileLock lock(fd, true);
    return tev::recoverJournal(fd) ? 1 : 0;
}

uint32_t recoverTEVFile(const char* path) {
    if (path == nullptr) {
        tev::logLine(tev::kLogError, "TEVJournal::recoverTEVFile", "filename is null");
        return 0;
    }
    const int fd = ::open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        tev::logLine(tev::kLogError, "TEVJournal::recoverTEVFile", "File Open Error");
        return 0;
    }
    uint32_t result = 0;
    {
        const tev::FileLock lock(fd, true);
        result = tev::recoverJournal(fd) ? 1 : 0;
    }
    ::close(fd);
    return result;
}
