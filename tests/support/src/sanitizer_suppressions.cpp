// The sanitizer findings the library keeps on purpose, in one list for every test executable.
// torq_test_support adds this file to each executable that links it (an interface source), so the
// list cannot differ from one binary to the next. Anything not listed here fails the run.

// ThreadSanitizer.
//
// deadlock: the id and path listening registrations and torqResListeningUnRegister reset the
// cached connection after a failed transaction while still holding listening_groups_mutex, so
// they take the HAL lock exclusively under that mutex, whereas the registrations take the mutex
// under the shared HAL lock. The inversion is the library's locking as it stands; it can only
// bite when two threads use the listening registry at once while a transaction fails, and the
// tests (the stress test included) drive the registry from one thread at a time.
extern "C" const char* __tsan_default_suppressions() {
    return "deadlock:torqResListeningRegister\n"
           "deadlock:torqResListeningUnRegister\n"
           "deadlock:listeningRegisterByPath\n";
}

// LeakSanitizer.
//
// leak:get_torq_hal_and_link_to_death and leak:zel_get_torq_hal_and_link_to_death: each front
// end makes a new death recipient at every connection and never deletes the previous one (a
// binder of an earlier connection may still refer to it). Tests connect again after every HAL
// death or failed transaction, so each of those recipients, and the death links it holds, would
// be reported. (The first pattern would also match the second name as a substring; both are
// listed so that each front end's entry stands on its own.)
extern "C" const char* __lsan_default_suppressions() {
    return "leak:get_torq_hal_and_link_to_death\n"
           "leak:zel_get_torq_hal_and_link_to_death\n";
}
