/// The application's whole view of the library. C++11, self-contained.
///
/// Order of calls; a number is a result:
///
///     CreateVexaShfeMdApi
///              |
///              v   VexaStart: 0                    VexaStop, or a signal
///     +----> made --------------> receiving ------------------------------> ended
///     |        |                   |     ^                                    |
///     +--------+                   +-----+                                    v
///     VexaStart: -1, -2        VexaRecv: 1, 0                            VexaRecv: -1
///                        (a loss rebuilds the session)
///
/// After the first -1 VexaStart(spi, ini) begins anew, unless it was a signal. DestroyVexaShfeMdApi may follow at each
/// place. There are two forms of delivery:
///
///     callback form    VexaStart(spi, ini)   VexaRecv()     again and again; updates go to spi
///                      VexaRecvStart(spi, ini)              does both, and returns when the session has ended
///     polling form     VexaStart(ini)        VexaRecv(md)   again and again; updates are copied to md
///
/// The form of delivery is fixed by the form of the start, not by the form of the receive call.
///
/// Threads: the library creates none and takes no lock. One object serves one thread: the start, every receive
/// step and every callback run on it. Only VexaStop may be called from another thread.
///
/// The process: its objects share one board's registers, one log and the handlers of SIGINT and SIGTERM, which a start
/// installs and nothing takes away again; SIGPIPE is ignored from then on. After one of the two signals no session of
/// the process receives any more.
///
/// Channels: `device=xilinx<bus>:<channel>` in the INI file says which stream of the board the object reads. Channel 0
/// brings the board up, loads the snapshot and rebuilds after a loss, for all channels; the others only receive.
///
/// Errors: a number, and one line in the log that says what failed and what to do (docs/operations.md lists them). No
/// operation throws but for what the application's own callback throws.
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
    /// One live update of an instrument that the object's channel subscribes to. Runs on the receiving thread, inside
    /// VexaRecv or VexaRecvStart, which handles nothing else until it returns: meanwhile messages wait in the board,
    /// and what finds no room there any more is a loss.
    ///
    /// `md` lies in the receive buffer and is valid only during the call: copy what is to be kept.
    ///
    /// May call VexaStop; must neither start nor destroy the object. An exception thrown here passes through to the
    /// caller of the receive step; the update counts as delivered, and the next step goes on with the next message.
    virtual void OnVexaShfeMd(VexaShfeMdType& md) = 0;

    virtual ~CVexaShfeMdSpi() {}
};

/// One session. Made by CreateVexaShfeMdApi and ended only by DestroyVexaShfeMdApi.
class CVexaShfeMdApi {
public:
    /// Makes one object (about 14 MB, on the heap) and touches neither file nor board. Never fails visibly: when memory
    /// is short it returns an object whose VexaStart gives -2 and VexaRecvStart -1. Thread-safe. Blocks on nothing.
    VEXA_SHFE_MD_API static CVexaShfeMdApi& CreateVexaShfeMdApi();

    /// Ends `api` and frees it, together with the receive stream it holds open. The board is left running, and so are
    /// other objects. Call it once, from the object's own thread and outside any callback; a stop before it is not
    /// needed. From then on `api` must not be used, and no VexaStop be under way on another thread.
    VEXA_SHFE_MD_API static void DestroyVexaShfeMdApi(CVexaShfeMdApi& api);

    /// Starts in the callback form and receives until the session ends; blocks all that time, and keeps one CPU busy.
    /// `spi` and the text of `lpConfig` as in VexaStart. To end it: VexaStop from another thread or from the callback,
    /// or a signal.
    ///
    /// Returns:
    ///    0  the session ran and has ended (VexaStop, SIGINT, SIGTERM or a failed rebuild after a loss)
    ///   -1  the start failed, or `lpConfig` is null; the log, or standard output, says why
    virtual int32_t VexaRecvStart(CVexaShfeMdSpi& spi, const char* lpConfig) = 0;

    /// Starts in the callback form: every update goes to `spi`, which is kept by reference and must outlive the
    /// session. `lpConfig` is the path of the INI file (at most 255 characters, a longer one is cut), copied; the file
    /// is read during a start alone. Clears an earlier VexaStop. Not to be called while the object receives: stop it,
    /// and take the receive step that returns -1.
    ///
    /// On channel 0 it blocks, polling, while the board is brought up and the snapshot is loaded: 3 seconds to see
    /// whether the board runs, then up to init_tcpcnt attempts of 6 seconds for its memory and as long as the snapshot
    /// takes. That is at most init_tcpcnt x (wait_snap_timeout + 7) + 3 seconds (by default half an hour), besides the
    /// time of millions of register accesses and that of an outage of the board. VexaStop from another thread, or a
    /// signal, ends the wait for the snapshot, or for a board that has gone; the short waits may run out first. On the
    /// other channels it opens the stream and returns.
    ///
    /// Returns:
    ///    0  started; call VexaRecv() again and again
    ///   -1  `lpConfig` is null; nothing was changed
    ///   -2  initialisation failed: file unreadable, board not reachable, or start-up failed, stopped or signalled.
    ///       It may be started again once the cause is mended. Attempts that failed add up until a start succeeds:
    ///       after init_tcpcnt of them only a new object helps
    virtual int32_t VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) = 0;

    /// One receive step of the callback form: one poll, and at most one message. An earlier start must have returned 0.
    /// Call it without pause: nothing tells when a message is there. Never waits, except on channel 0 when a loss makes
    /// it rebuild the session, which takes as long as a start without its first 3 seconds.
    /// After a start in the polling form it copies into the record last given to VexaRecv(md); where none has been
    /// given yet, updates are dropped.
    ///
    /// Returns:
    ///    1  one update was delivered
    ///    0  nothing was delivered: no message, one that is no update, or a board that does not answer at present
    ///   -1  the session has ended: stopped, signalled or not started. Every further step gives -1, too
    ///   -1  it could not be rebuilt. A further step tries again, until init_tcpcnt attempts in a row have failed
    virtual int32_t VexaRecv() = 0;

    /// Starts in the polling form: every update is copied into the record given to VexaRecv(md). Same argument, waiting
    /// and results as the callback form, but an earlier VexaStop stays in force: an object that was stopped receives
    /// nothing in this form any more; make a new one.
    virtual int32_t VexaStart(const char* lpConfig) = 0;

    /// One receive step of the polling form; takes at most one message, so that no update is lost. Waiting and results
    /// as VexaRecv(): on 1 `md` holds the new update, otherwise it is untouched. After a start in the callback form the
    /// update goes to the Spi instead. `md` must stay alive until the next receive step, which may bring another one.
    virtual int32_t VexaRecv(VexaShfeMdType& md) = 0;

    /// Asks for the end of the session; the next receive step returns -1. May be called from any thread, from a signal
    /// handler and from the callback (the step in hand still finishes), as often as you like. Sets a flag and blocks on
    /// nothing; what a start that is under way makes of it stands there. Always returns 0.
    virtual int32_t VexaStop() = 0;

protected:
    // Objects end through DestroyVexaShfeMdApi, which knows their type.
    ~CVexaShfeMdApi() = default;
};
