package vendor.quarn.hardware.torq;

import vendor.quarn.hardware.torq.ITorqCallback;
import vendor.quarn.hardware.torq.TorqRequestData;

/**
 * One request to the Torq HAL.
 */
@VintfStability
parcelable TorqRequestParcel {
    /** Request kind (resource control, SA control, dump, notify, ...). */
    int kind;
    /** Resource entries, in the caller's order. */
    TorqRequestData[] data;
    /** Set when the caller's level is 1 or more. */
    boolean flag;
    int option;
    int tag;
    /** Duration; callers widen their 32-bit value with sign extension. */
    long duration;
    /** Free-form texts (markers). */
    @nullable String[] extras;
    int param;
    /** Answered once (requests) or on every change (listening). */
    @nullable ITorqCallback callback;
    /** Package name given to event acquisition. */
    @nullable String pkg;
    /** Caller identity given to event acquisition. */
    @nullable String identity;
    @nullable int[] numbers;
}
