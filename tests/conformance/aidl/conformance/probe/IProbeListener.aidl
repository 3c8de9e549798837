package conformance.probe;

/** Served by probe clients. */
interface IProbeListener {
    oneway void onNote(String note);
}
