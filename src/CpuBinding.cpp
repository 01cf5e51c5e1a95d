// Pins the thread that starts, and so the thread that receives, to the configured CPU.
#include <sched.h>

#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

int32_t CVexaShfeMdApiImpl::_BindCpu() {
    const int32_t cpu = m_u50ConfigInfo.cpucore;
    if (cpu == -1) {
        VEXA_LOG(LOG_WARNING, "could not set CPU[%d] affinity", cpu);
        return -1;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    // A number outside the set leaves it empty, which the system refuses.
    if (cpu >= 0 && cpu < CPU_SETSIZE) CPU_SET(static_cast<std::size_t>(cpu), &set);
    if (sched_setaffinity(0, sizeof set, &set) == -1) {
        VEXA_LOG(LOG_WARNING, "set CPU[%d] affinity failed.", cpu);
        return -1;
    }
    VEXA_LOG(LOG_DEBUG, "set CPU[%d] affinity successful.", cpu);
    return 0;
}
