/* The seam between the library and a board: a versioned table of C functions. Plain C; C++ may include it.
 *
 * A provider is a shared object that exports one function, `vexa_board_provider`. The library loads it when the
 * registers are first opened and then calls everything from the session's own thread, never two calls at once on
 * one handle. Nothing may throw except what passes through from the message handler.
 *
 *     vexa_board_provider                        once, when it is loaded; never unloaded
 *          |
 *     open_registers ---> write32, read32, read64 ...             ---> close_registers
 *          |                       |  started again: both are opened anew
 *     open_stream    ---> receive, receive, ... ---> handler      ---> close_stream
 *
 * Registers are opened before the stream, and closed in either order. A process has at most one open register area; it
 * has one stream for each session object. A handle is closed once, when its object is destroyed or started again; a
 * process that ends otherwise closes nothing. docs/board-provider.md shows a whole provider.
 *
 * A function that fails gives a negative number of its own choice, which stands in the log; nothing else hangs on it.
 */
#ifndef VEXA_BOARD_PROVIDER_H
#define VEXA_BOARD_PROVIDER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VEXA_BOARD_PROVIDER_VERSION 2u
#define VEXA_BOARD_PROVIDER_ENTRY "vexa_board_provider"

/* Both are the provider's own: the library keeps the pointer and looks at nothing behind it. */
typedef struct VexaBoardRegisters VexaBoardRegisters; /* an open register area */
typedef struct VexaBoardStream VexaBoardStream;       /* an open receive stream */

/* One message: `data` stays valid during the call, and at least 192 bytes behind it are readable whatever `length`
 * says. `length` counts bytes, of the message's own type and length words too, at most 2048; `data` needs no alignment.
 * `user` is what `receive` was given. The handler runs the application's callback, so that it may last, and may throw
 * (C++); what it throws must pass through `receive`. */
typedef void (*VexaBoardMessageHandler)(const unsigned char* data, unsigned int length, void* user);

/* Every operation of a version is required. Results: 0 for success, negative for failure, unless said otherwise. Table
 * and texts are the provider's; nobody writes to them. */
typedef struct VexaBoardProvider {
    uint32_t version; /* of the table: 1, or VEXA_BOARD_PROVIDER_VERSION */
    uint32_t size;    /* sizeof(VexaBoardProvider), in bytes; a longer table is taken, a shorter one refused */
    const char* name; /* for log lines; never null, NUL-terminated */

    /* Opens the register area of the board on `bus`. `argument` is the text behind the colon in VEXA_BOARD_PROVIDER,
     * never null, valid during the call. `core` selects the register core and is always 474. On 0 `*registers` is the
     * handle and not null; on failure it is left alone. May block for as long as a board takes to be found; a start
     * waits for it. */
    int32_t (*open_registers)(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers);
    void (*close_registers)(VexaBoardRegisters* registers); /* never null; the handle is not used afterwards */

    /* `index` counts 32-bit registers. A 64-bit register has one index, too, and `read64` gives the whole. Accesses
     * take effect in the order of the calls. One that fails leaves `value` alone; the area stays open and may answer
     * again. A start makes millions of them, one after the other. */
    int32_t (*write32)(VexaBoardRegisters* registers, uint32_t index, uint32_t value);
    int32_t (*read32)(VexaBoardRegisters* registers, uint32_t index, uint32_t* value);
    int32_t (*read64)(VexaBoardRegisters* registers, uint32_t index, uint64_t* value);

    /* Opens one channel's messages. `name` is the stream's name, "CUSTOM_CHAN<channel>_DATA" with the channel in
     * decimal; `argument`, `bus`, handle and result as for open_registers. What was sent before need not be handed
     * over. */
    int32_t (*open_stream)(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream);
    void (*close_stream)(VexaBoardStream* stream); /* never null, never from inside the handler */

    /* One poll: never blocks, hands over at most one message, by one call of `handler` before it returns. Called again
     * and again without a pause. Returns the number of messages handed over (0 or 1), or a negative value while the
     * stream has failed. A failed stream is polled on, and is in order again with the next result that is not negative.
     * A board that was replaced fails at least once, so that nobody takes the new one for the old. A message whose
     * handler has thrown counts as handed over. */
    int32_t (*receive)(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user);

    /* Since version 2. Why this thread's last call with a negative result failed, as a text for a log line: never null,
     * empty when there is nothing to tell, valid until the thread's next call. Asked right behind the failing call, and
     * only when an open fails or an outage begins. */
    const char* (*last_error)(void);
} VexaBoardProvider;

/* What a provider exports; the result must stay valid and unchanged for the rest of the process. Null, another version
 * or a missing operation is told in the log, and the start fails. */
typedef const VexaBoardProvider* (*VexaBoardProviderEntry)(void);

#ifdef __cplusplus
}
#endif

#endif
