package conformance.probe;

import conformance.probe.IProbeListener;
import conformance.probe.Outer;

/** A test-only interface covering argument shapes beyond the Torq HAL's. */
interface IProbe {
    /** Reverses `values` into `reversed`, doubles every element of `scaled` in place. */
    int arrays(in int[] values, out int[] reversed, inout long[] scaled);

    /** Echoes the strings and bytes back, and fills `copy` with a copy of `names`. */
    byte[] texts(in String[] names, out String[] copy, in byte[] raw);

    /** Returns `outer` with `count` incremented in every nested Inner. */
    Outer nested(in Outer outer);

    /** Hands `listener` a note, one way; it answers through its own oneway method. */
    oneway void notify(in IProbeListener listener, String note);

    /** The listener inside `outer`, called back with `note`. */
    void callInside(in Outer outer, String note);

    /**
     * `maybe` with "!" appended, or null when it is null. (Android 10's compiler has no nullable
     * parcelables in the NDK back end, so null travels as a string here.)
     */
    @nullable String shout(in @nullable String maybe);
}
