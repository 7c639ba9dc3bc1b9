#include "engine/retry_schedule.h"

namespace quenmoor {

void RetrySchedule::countFailure()
{
    if (!exhausted())
        ++retries_;
}

} // namespace quenmoor
