// HOST ONLY, for sanitizer builds. Both front ends of the library make a new death recipient at
// every connection and never delete the previous one (they cannot know when the platform is done
// with it). A torqctl run connects at least once per front end, and again after every HAL
// restart, so LeakSanitizer would report those recipients and the links they hold.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:get_torq_hal_and_link_to_death\n";
}

// Keeps the list of used suppressions off standard error, which torqctl keeps for its own errors.
extern "C" const char* __lsan_default_options() {
    return "print_suppressions=0";
}
