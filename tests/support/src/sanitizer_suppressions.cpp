// The sanitizer findings the library keeps on purpose, compiled into every executable that links
// torq_test_support (an interface source), into every fuzz target and into torqctl, so that no
// binary differs. Anything else fails a run.

// ThreadSanitizer. deadlock: after a failed transaction the id and path listening registrations
// and torqResListeningUnRegister take the HAL lock exclusively while holding
// listening_groups_mutex, the reverse of the registrations' order. That is the library's locking
// as it stands; the tests drive the registry from one thread at a time.
extern "C" const char* __tsan_default_suppressions() {
    return "deadlock:torqResListeningRegister\n"
           "deadlock:torqResListeningUnRegister\n"
           "deadlock:listeningRegisterByPath\n";
}

// LeakSanitizer. Each front end makes a new death recipient at every connection and never deletes
// the previous one (a binder of an earlier connection may still refer to it); tests connect again
// after every HAL death or failed transaction. One entry per front end, although the first
// pattern also matches the second name.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:get_torq_hal_and_link_to_death\n"
           "leak:zel_get_torq_hal_and_link_to_death\n";
}

// Keeps the list of used suppressions off standard error, which torqctl keeps for its own errors.
extern "C" const char* __lsan_default_options() {
    return "print_suppressions=0";
}
