// Guards for the time a process holds a secret of the TLS suite (pass phrase, symmetric key,
// the record that carries them).
#pragma once

#include <sys/prctl.h>

/// Makes the process non-dumpable for its scope (no core file, no ptrace by the same user, no
/// /proc/<pid>/mem for others), then puts back the previous state.
class NoDumpScope
{
  public:
    NoDumpScope() : previous_(prctl(PR_GET_DUMPABLE, 0, 0, 0, 0))
    {
        (void)prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    }
    ~NoDumpScope()
    {
        if (previous_ > 0)
            (void)prctl(PR_SET_DUMPABLE, previous_, 0, 0, 0);
    }
    NoDumpScope(const NoDumpScope &) = delete;
    NoDumpScope &operator=(const NoDumpScope &) = delete;

  private:
    int previous_;
};
