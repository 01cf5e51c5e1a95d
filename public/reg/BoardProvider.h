/* The seam between the library and a board: a versioned table of C functions.
 *
 * A provider is a shared object that exports one function, `vexa_board_provider`. The library loads it when the
 * registers are first opened and then calls everything from the session's own thread, never two calls at once on
 * one handle. Nothing may throw except what passes through from the message handler.
 */
#ifndef VEXA_BOARD_PROVIDER_H
#define VEXA_BOARD_PROVIDER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VEXA_BOARD_PROVIDER_VERSION 2u
#define VEXA_BOARD_PROVIDER_ENTRY "vexa_board_provider"

typedef struct VexaBoardRegisters VexaBoardRegisters; /* an open register area */
typedef struct VexaBoardStream VexaBoardStream;       /* an open receive stream */

/* One message: `data` stays valid during the call, and at least 192 bytes behind it are readable whatever `length`
 * says. */
typedef void (*VexaBoardMessageHandler)(const unsigned char* data, unsigned int length, void* user);

/* Every operation of a version is required. Results: 0 for success, negative for failure, unless said otherwise. */
typedef struct VexaBoardProvider {
    uint32_t version; /* of the table: 1, or VEXA_BOARD_PROVIDER_VERSION */
    uint32_t size;    /* sizeof(VexaBoardProvider) */
    const char* name; /* for log lines */

    /* `argument` is the text behind the colon in VEXA_BOARD_PROVIDER, never null. `core` selects the register core. */
    int32_t (*open_registers)(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers);
    void (*close_registers)(VexaBoardRegisters* registers);

    /* `index` counts 32-bit registers. Accesses take effect in the order of the calls. One that fails leaves `value`
     * alone; the area stays open and may answer again. */
    int32_t (*write32)(VexaBoardRegisters* registers, uint32_t index, uint32_t value);
    int32_t (*read32)(VexaBoardRegisters* registers, uint32_t index, uint32_t* value);
    int32_t (*read64)(VexaBoardRegisters* registers, uint32_t index, uint64_t* value);

    /* `name` is the stream's name, "CUSTOM_CHAN<channel>_DATA". */
    int32_t (*open_stream)(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream);
    void (*close_stream)(VexaBoardStream* stream);

    /* One poll: never blocks, hands over at most one message. Returns the number of messages handed over (0 or 1),
     * or a negative value while the stream has failed. A failed stream is polled on, and is in order again with the
     * next result that is not negative. A board that was replaced fails at least once, so that nobody takes the new one
     * for the old. */
    int32_t (*receive)(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user);

    /* Since version 2. Why this thread's last call with a negative result failed, as a text for a log line: never null,
     * empty when there is nothing to tell, valid until the thread's next call. */
    const char* (*last_error)(void);
} VexaBoardProvider;

/* What a provider exports; the result must stay valid for the rest of the process. */
typedef const VexaBoardProvider* (*VexaBoardProviderEntry)(void);

#ifdef __cplusplus
}
#endif

#endif
