#include "app/standardstreams.h"

#include <fcntl.h>
#include <unistd.h>

void openMissingStandardStreams()
{
    // The lowest free number is taken each time; one above standard error means that none is missing.
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}
