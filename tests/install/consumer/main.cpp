// Uses all three front ends' headers from the installed tree. No HAL is declared here, so the
// flat API's first call must fail cleanly rather than wait.
#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <cstdio>

int main() {
    const int32_t init = zelInit();
    std::printf("actions=%zu zelInit=%d\n", gActionList.size(), init);
    return 0;
}
