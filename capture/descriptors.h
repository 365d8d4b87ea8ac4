// Descriptors of this library's own, in a program that does not know of them: it may count on the
// lowest numbers for itself, and may close what it has not opened.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

struct OwnDescriptor {
    int fd = -1;
    dev_t device = 0; // the file that it stands for: the number alone may become another's
    ino_t file = 0;
};

/// One that stays where it is.
inline OwnDescriptor identified(int fd)
{
    struct stat status {};
    fstat(fd, &status);
    return {fd, status.st_dev, status.st_ino};
}

/// Takes a descriptor over, with a number as high as the program's limit allows.
inline OwnDescriptor ownDescriptor(int fd)
{
    for (const int least : {600, 200, 50})
        if (const int high = fcntl(fd, F_DUPFD_CLOEXEC, least); high >= 0) {
            close(fd);
            fd = high;
            break;
        }
    return identified(fd);
}

/// False when the program has closed it.
inline bool isStillOwn(const OwnDescriptor& own)
{
    struct stat status {};
    return own.fd >= 0 && fstat(own.fd, &status) == 0 && status.st_dev == own.device &&
           status.st_ino == own.file;
}
