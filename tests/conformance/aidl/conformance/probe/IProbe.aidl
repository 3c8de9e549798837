package conformance.probe;

/** A test-only interface covering argument shapes beyond the Torq HAL's. */
interface IProbe {
    /** Reverses `values` into `reversed`, doubles every element of `scaled` in place. */
    int arrays(in int[] values, out int[] reversed, inout long[] scaled);

    /** Echoes the strings and bytes back, and fills `copy` with a copy of `names`. */
    byte[] texts(in String[] names, out String[] copy, in byte[] raw);
}
