// Tool result codes: the one number every layer hands upwards and the process exits with.
#pragma once

#include <cerrno>
#include <cstdint>

// The high nibble of the low 16 bits names the class; the front-end picks one printer per class.
// The codes mix freely with the configuration store's numbers (12289 is 0x3001) and travel as
// plain int32_t through handlers, so this is an unscoped enum with a fixed underlying type.
enum ToolResult : int32_t {
    kOk = 0,

    // 0x1000: shape of the command line.
    kErrMajorType = 0x1001,     ///< first word is neither "-i" nor "-a"
    kErrMajorCount = 0x1002,    ///< word count outside 2..63
    kErrMajorCmd = 0x1003,      ///< no command record matches
    kErrOptionUnknown = 0x1004, ///< a word that no registered option takes
    kErrDeviceId = 0x1005,      ///< bad device id
    kErrCmdAttr = 0x1006,       ///< major type of a record does not fit (lookup only)
    kErrParamLen = 0x1007,      ///< a word longer than 900 characters

    // 0x2000: parameters of a command.
    kErrParamInvalid = 0x2001,
    kErrFilePath = 0x2002,
    kErrUnknownOption = 0x2003,
    kErrSeeHelp = 0x2004,
    kErrArgCount = 0x2005,
    kErrMacInvalid = 0x2006,
    kErrReported = 0x2007, ///< invalid value, the handler has printed its own text
    kErrIpConflict = 0x2008,
    kErrGatewaySegment = 0x2009,
    kErrRangeDscp = 0x200A,
    kErrRangeTc = 0x200B,
    kErrRangeBwLimit = 0x200C,
    kErrRangeRoceContext = 0x200D,
    kErrRangeMtu = 0x200E,
    kErrTlsNoCerts = 0x200F,
    kErrTlsAlarm = 0x2010,
    kErrTlsEnable = 0x2011,
    kErrTlsNoKey = 0x2012,
    kErrTlsKeyCert = 0x2013,
    kErrTlsChain = 0x2014,
    kErrTlsCrlLast = 0x2015,
    kErrPwdLength = 0x2016,
    kErrPwdComplexity = 0x2017,
    kErrPwdWeak = 0x2018,
    kErrCertLength = 0x2019,
    kErrPwdNoDict = 0x201A,
    kErrPwdEmptyDict = 0x201B,
    kErrPwdDictTooLong = 0x201C,
    kErrPwdCheck = 0x201D,
    kErrHostLast = 0x201E,

    // 0x3000: the tool's own system failures. The configuration store returns these as
    // decimal numbers: 12289 .. 12295.
    kErrSysCopy = 0x3001,        ///< 12289: bounded copy, format, memory, size limit
    kErrSysNull = 0x3002,        ///< 12290: null pointer, unresolvable path, full table
    kErrSysConfMissing = 0x3003, ///< 12291: configuration file missing
    kErrSysWrite = 0x3004,       ///< 12292: configuration write failed
    kErrSysRead = 0x3005,        ///< 12293: configuration read failed
    kErrSysNotFound = 0x3006,    ///< 12294: key not found
    kErrSysDelete = 0x3007,      ///< 12295: configuration delete failed
    kErrSys8 = 0x3008,
    kErrCertExpired = 0x3009,
    kErrTerminal = 0x300A,
    kErrBusy = 0x300B,

    // 0x4000: the device or the device library.
    kErrKopa = 0x4001,
    kErrKopaDevId = 0x4002,
    kErrKopaNoGateway = 0x4003,
    kErrKopaHealth = 0x4004,
    kErrKopaGone = 0x4005,
    kErrKopaTlsIllegal = 0x4006,
    kErrKopaTlsChain = 0x4007,

    // 0x5000: the command could not be executed.
    kErrExec = 0x5001,
};

// The low-level routines (device operations, the channel, the configuration store's argument
// checks) return 0, -1 or a negated errno value; handlers translate them into tool codes.
inline constexpr int kErrnoInval = -EINVAL; ///< -22: an argument or a reply is not usable
inline constexpr int kErrnoNoMem = -ENOMEM; ///< -12: out of memory, or a saved line out of form
inline constexpr int kErrnoBusy = -EBUSY;   ///< -16: another process holds the lock

/// The class of a result code: 0x1000, 0x2000, 0x3000, 0x4000 or 0x5000.
constexpr int32_t result_class(int32_t code)
{
    return code & 0xF000;
}

/// Every error of the device library becomes kErrKopa; the library's own code is only logged.
constexpr int32_t kopa_err_to_vorn_err(int /*library_code*/)
{
    return kErrKopa;
}
