// The return codes of IOKit that the daemon tells apart.
#pragma once

#include <mach/kern_return.h>

#define kIOReturnNotPrivileged ((kern_return_t)0xe00002c1)
