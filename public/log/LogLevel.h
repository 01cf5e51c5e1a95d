/// Log levels: a bit mask, so that a configured level is any sum of them.
#pragma once

#include <cstdint>

enum ELOGLEVEL : int32_t {
    LOG_NONE = 0,
    LOG_ERROR = 1,
    LOG_WARNING = 2,
    LOG_INFO = 4,
    LOG_DEBUG = 8,
    LOG_DEBUG_EX = 16,  ///< every register access
    LOG_ALL = 31,
};
