package conformance.probe;

parcelable Inner {
    int count;
    @nullable String label;
}
