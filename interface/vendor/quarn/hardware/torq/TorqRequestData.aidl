package vendor.quarn.hardware.torq;

/**
 * One resource entry of a request, or one value of a reply.
 */
@VintfStability
parcelable TorqRequestData {
    /** Resource opcode (or dump code for dump requests). */
    int id;
    /** Second integer qualifying the id; 0 when unused. */
    int subId;
    /** The value, always as text. */
    @nullable String value;
    /** Resource path, for path-addressed requests. */
    @nullable String path;
    /** A third text (history replies carry their text here). */
    @nullable String extra;
}
