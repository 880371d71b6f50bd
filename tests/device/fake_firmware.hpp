// A scripted stand-in for the driver's exchange call and log facility: records every request
// record and answers from the running test's script.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/kopa_platform.h"

struct FakeFirmware {
    /// Answers one request: fills `rsp` (zeroed beforehand) and may change `rsp_len`; the
    /// return value is the library's. The default answers result 0, frag 0, no data.
    std::function<int(const ds_req &req, ds_rsp &rsp, unsigned int &rsp_len)> answer;
    std::vector<ds_req> requests; ///< every request, in order
    std::vector<std::string> log; ///< every driver-log line

    /// Resets script, requests and log.
    void reset();
    /// Scripts the answer of a firmware that accepts every command and replies with its
    /// capacity less `missing` bytes of `fill`, cut as the firmware cuts a reply: one piece
    /// with frag 0 up to 2000 bytes, else pieces of 2000 with frag 2 and a last with frag 3.
    void reply_short_by(uint32_t missing, uint8_t fill = 0x5A);
    bool logged(const std::string &fragment) const;
};

/// The one instance the exchange call consults.
FakeFirmware &fake_firmware();

/// A reply piece: result, frag and `len` bytes of `fill`.
ds_rsp fake_piece(int32_t result, uint32_t frag, uint32_t len, uint8_t fill = 0);

inline constexpr unsigned int kFakeTgid = 4242;
