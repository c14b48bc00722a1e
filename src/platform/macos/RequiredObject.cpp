#include "platform/macos/RequiredObject.h"

#include "concurrency/Require.h"

namespace airflow::platform {

void stopWithoutMemory() noexcept {
    concurrency::stopProcess("Core Foundation has no memory left for an object");
}

}  // namespace airflow::platform
