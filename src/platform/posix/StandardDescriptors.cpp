#include "platform/posix/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace airflow::platform {

void openStandardDescriptors() {
    for (;;) {
        const int opened = open("/dev/null", O_RDWR);  // the lowest number that is free
        if (opened < 0) return;
        if (opened > STDERR_FILENO) {
            close(opened);
            return;
        }
    }
}

}  // namespace airflow::platform
