// Testing your own client of the Torq HAL on a host: the reference HAL runs in an emulated process
// of its own, your code talks to it through the library exactly as on a device.
#include <android/binder_status.h>
#include <binder_host/process.h>  // host only: the emulated binder world
#include <torq_sim/SimHost.h>     // host only: the reference Torq HAL
#include <zel.h>

#include <cstdio>

// The code under test: your process's use of the HAL.
int32_t boostCameraLaunch() {
    return ZelEventAcquire(11, "com.example.camera", "camera", 3000, {});
}

int main() {
    binder_host::reset();   // a clean emulated world
    torq_sim::SimHost hal;  // the HAL, in its own process "torq-sim" once started
    hal.start();            // registered and declared as vendor.quarn.hardware.torq.ITorq/default

    const int32_t handle = boostCameraLaunch();  // the simulator's model answers: a handle > 0
    const torq_sim::ReceivedCall call = hal.last("request");  // as the HAL unmarshalled it
    const bool sent = call.parcel.kind == 8 && call.parcel.data.at(0).id == 11 &&
                      call.parcel.pkg == "com.example.camera";

    torq_sim::SentAnswer refused;  // script the next answer: the HAL refuses
    refused.exception = EX_SERVICE_SPECIFIC;
    refused.serviceSpecificError = 3;
    hal.answerOnce("request", refused);
    const bool refusedSeen = boostCameraLaunch() == -1;

    hal.kill();     // the HAL process dies: the library hears of it and fails fast
    hal.restart();  // a new HAL process registers the same instance
    const bool back = boostCameraLaunch() > 0;  // the library reconnects by itself

    const bool ok = handle > 0 && sent && refusedSeen && back;
    std::printf("%s\n", ok ? "host test passed" : "host test FAILED");
    return ok ? 0 : 1;
}
