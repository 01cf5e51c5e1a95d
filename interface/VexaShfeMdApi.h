/// The application's whole view of the library. C++11, self-contained.
///
/// Order of calls:
///
///     CreateVexaShfeMdApi -> VexaStart(spi, ini) -> VexaRecv() ...   -> VexaStop -> DestroyVexaShfeMdApi
///                            VexaStart(ini)      -> VexaRecv(md) ...
///                            VexaRecvStart(spi, ini), which does the receiving itself
///
/// Threads: the library creates none and takes no lock. One object serves one thread: the start, every receive
/// step and every callback run on it. Only VexaStop may be called from another thread.
///
/// Objects of one process share one board's registers, the log and the signal handlers.
///
/// The form of delivery is fixed by the form of the start, not by the form of the receive call.
#pragma once

#include <cstdint>

#include "VexaShfeMdStruct.h"

#if defined(__GNUC__)
#define VEXA_SHFE_MD_API __attribute__((visibility("default")))
#else
#define VEXA_SHFE_MD_API
#endif

/// Implemented by the application; receives every update of a session started in the callback form.
class CVexaShfeMdSpi {
public:
    /// One live update. Runs on the receiving thread, inside VexaRecv or VexaRecvStart, which handles nothing else
    /// until it returns. `md` lies in the receive buffer and is valid only during the call: copy what is to be kept.
    /// May call VexaStop. An exception thrown here passes through to the caller of the receive step.
    virtual void OnVexaShfeMd(VexaShfeMdType& md) = 0;

    virtual ~CVexaShfeMdSpi() {}
};

/// One session. Made by CreateVexaShfeMdApi and ended only by DestroyVexaShfeMdApi.
class CVexaShfeMdApi {
public:
    /// Makes one object (about 14 MB, on the heap). Never fails visibly: when memory is short it returns an object
    /// whose every start returns -2. Thread-safe.
    VEXA_SHFE_MD_API static CVexaShfeMdApi& CreateVexaShfeMdApi();

    /// Ends `api` and frees it, together with the receive stream it holds open. The board is left running. Call it
    /// from the object's own thread, outside any callback. `api` must not be used afterwards.
    VEXA_SHFE_MD_API static void DestroyVexaShfeMdApi(CVexaShfeMdApi& api);

    /// Starts in the callback form and receives until the session ends; blocks all that time.
    /// `spi` and the text of `lpConfig` as in VexaStart.
    /// Returns:
    ///    0  the session ran and has ended (VexaStop, SIGINT, SIGTERM or a failed rebuild after a loss)
    ///   -1  the start failed; the log, or standard output, says why
    virtual int32_t VexaRecvStart(CVexaShfeMdSpi& spi, const char* lpConfig) = 0;

    /// Starts in the callback form: every update goes to `spi`, which is kept by reference and must outlive the
    /// session. `lpConfig` is the path of the INI file (at most 255 characters), copied. Clears an earlier VexaStop.
    /// Blocks while the board is brought up and the snapshot is loaded: several seconds, at most about
    /// init_tcpcnt x (wait_snap_timeout + 6) + 3 seconds.
    /// Returns:
    ///    0  started; call VexaRecv() again and again
    ///   -1  `lpConfig` is null
    ///   -2  initialisation failed: file unreadable, board not reachable, or start-up failed
    virtual int32_t VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) = 0;

    /// One receive step of the callback form. Never waits, except when a loss makes it rebuild the session.
    /// After a start in the polling form it copies into the record last given to VexaRecv(md).
    /// Returns:
    ///    1  one update was delivered
    ///    0  nothing was delivered: no message, or one that is no update
    ///   -1  the session has ended: stopped, signalled, or it could not be rebuilt
    virtual int32_t VexaRecv() = 0;

    /// Starts in the polling form: every update is copied into the record given to VexaRecv(md). Same argument,
    /// waiting and results as the callback form, but an earlier VexaStop stays in force.
    virtual int32_t VexaStart(const char* lpConfig) = 0;

    /// One receive step of the polling form; takes at most one message, so that no update is lost. Results as
    /// VexaRecv(): on 1 `md` holds the new update, otherwise it is untouched. After a start in the callback form the
    /// update goes to the Spi instead. `md` must stay alive until the next receive step.
    virtual int32_t VexaRecv(VexaShfeMdType& md) = 0;

    /// Asks for the end of the session; the next receive step returns -1. May be called from any thread and from the
    /// callback (the step in hand still finishes). Always returns 0.
    virtual int32_t VexaStop() = 0;

protected:
    // Objects end through DestroyVexaShfeMdApi, which knows their type.
    ~CVexaShfeMdApi() = default;
};
