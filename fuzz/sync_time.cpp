// The time of the daily device list: from the text in a registration answer to the alarm.
#include <fuzzer/FuzzedDataProvider.h>

#include "dro_reg.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int kDay = 86400;
    FuzzedDataProvider input(data, size);
    // Seconds of the day, including a leap second, from the end of the input.
    const int utc = input.ConsumeIntegralInRange<int>(0, kDay);
    const int local = input.ConsumeIntegralInRange<int>(0, kDay);
    const int target = dro::sync_target(input.ConsumeRemainingBytesAsString());
    const int delay = dro::seconds_until_sync(target, utc, local);
    if (target >= 0 && target < kDay) {
        // A time of day is reached within a day.
        fuzz::require(delay >= 0 && delay <= kDay && (utc + delay) % kDay == target % kDay);
    }
    return 0;
}
