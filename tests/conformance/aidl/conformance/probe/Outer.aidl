package conformance.probe;

import conformance.probe.IProbeListener;
import conformance.probe.Inner;

parcelable Outer {
    Inner first;
    Inner[] more;
    @nullable IProbeListener listener;
    byte[] blob;
    String name;
}
