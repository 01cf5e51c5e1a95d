/* The smallest board provider: registers that keep what is written to them, and one instrument that trades. */
#include <stdlib.h>
#include <string.h>
#include <vexa/BoardProvider.h>

#define REGISTER_COUNT 0x30000u
#define REGISTER_CORE 474u
#define DMA_UPDATE 1u     /* the message's type: one live record */
#define MESSAGE_HEAD 8u   /* type, length */
#define RECORD_BYTES 176u /* VexaShfeMdType */
#define READABLE_BYTES 192u
#define POLLS_PER_UPDATE 100u

struct VexaBoardRegisters {
    uint32_t value[REGISTER_COUNT];
};

struct VexaBoardStream {
    uint32_t polls;
    uint32_t volume;
};

static const char* reason = ""; /* one thread, as the library is used */

static int32_t refuse(const char* why) {
    reason = why;
    return -1;
}

static int32_t open_registers(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) {
    (void)argument;
    if (bus != 0 || core != REGISTER_CORE) return refuse("this board sits on bus 0 and has core 474 alone");
    *registers = calloc(1, sizeof **registers);
    return *registers == NULL ? refuse("no memory") : 0;
}

static void close_registers(VexaBoardRegisters* registers) { free(registers); }

static int32_t write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
    if (index >= REGISTER_COUNT) return refuse("there is no such register");
    registers->value[index] = value;
    return 0;
}

static int32_t read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    if (index >= REGISTER_COUNT) return refuse("there is no such register");
    *value = registers->value[index];
    return 0;
}

static int32_t read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
    if (index >= REGISTER_COUNT) return refuse("there is no such register");
    *value = registers->value[index];
    return 0;
}

static int32_t open_stream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
    (void)argument;
    if (bus != 0 || strcmp(name, "CUSTOM_CHAN1_DATA") != 0) return refuse("channel 1 of bus 0 alone has a stream");
    *stream = calloc(1, sizeof **stream);
    return *stream == NULL ? refuse("no memory") : 0;
}

static void close_stream(VexaBoardStream* stream) { free(stream); }

static void put32(unsigned char* to, uint32_t value) { memcpy(to, &value, sizeof value); }

/* At most one message a call, and never a wait for one. */
static int32_t receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
    unsigned char message[READABLE_BYTES] = {0};
    unsigned char* record = message + MESSAGE_HEAD;
    if (++stream->polls % POLLS_PER_UPDATE != 0) return 0;
    put32(message, DMA_UPDATE);
    put32(message + 4, RECORD_BYTES);
    memcpy(record + 4, "cu2612", sizeof "cu2612"); /* inst_id */
    put32(record + 32, 7654300);                   /* last_px, hundredths */
    put32(record + 36, ++stream->volume);          /* volume */
    handler(message, MESSAGE_HEAD + RECORD_BYTES, user);
    return 1;
}

static const char* last_error(void) { return reason; }

static const VexaBoardProvider provider = {
    .version = VEXA_BOARD_PROVIDER_VERSION,
    .size = sizeof(VexaBoardProvider),
    .name = "one instrument",
    .open_registers = open_registers,
    .close_registers = close_registers,
    .write32 = write32,
    .read32 = read32,
    .read64 = read64,
    .open_stream = open_stream,
    .close_stream = close_stream,
    .receive = receive,
    .last_error = last_error,
};

const VexaBoardProvider* vexa_board_provider(void) { return &provider; }
