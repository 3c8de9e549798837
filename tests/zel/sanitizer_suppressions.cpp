// Findings the library keeps on purpose.

// Every connect makes a new death recipient and never deletes the previous one (a binder of an
// earlier connection may still refer to it). These tests connect once per HAL they start, so
// LeakSanitizer would report each recipient and the death links it carries.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:zel_get_torq_hal_and_link_to_death\n";
}
