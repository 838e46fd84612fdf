// Body of the stand-in libraries for a driver built against the other Qt major: only their
// needed-library entries matter.
int korvanOtherQtMajor() {
    return 0;
}
