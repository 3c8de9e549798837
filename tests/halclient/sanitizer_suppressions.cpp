// Known findings the library keeps on purpose.

// The listening registrations and torqResListeningUnRegister reset the connection after a failed
// transaction while they still hold listening_groups_mutex, whereas every other path takes that
// mutex under the shared HAL lock. The tests exercise that failure path from one thread only, so
// the inversion is reported but cannot bite here.
extern "C" const char* __tsan_default_suppressions() {
    return "deadlock:torqResListeningRegister\n"
           "deadlock:torqResListeningUnRegister\n"
           "deadlock:listeningRegisterByPath\n";
}

// Every connection gets a new death recipient and the old one is never deleted (a binder of an
// earlier connection may still refer to it); the tests connect many times.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:get_torq_hal_and_link_to_death\n";
}
