// Linked into the fuzz targets whose code under test commits files: fsync and fdatasync answer
// at once. The targets look for faults of parsing and rewriting, not of durability (which the
// robustness tests cover with real runs), and a disk flush per input would slow them a
// hundredfold.
extern "C" int fsync(int /*fd*/)
{
    return 0;
}

extern "C" int fdatasync(int /*fd*/)
{
    return 0;
}
