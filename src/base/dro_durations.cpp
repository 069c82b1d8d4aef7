#include "dro_durations.h"

namespace dro {
namespace {

Durations& current() {
    static Durations values;
    return values;
}

}  // namespace

const Durations& durations() {
    return current();
}
void set_durations(const Durations& values) {
    current() = values;
}

}  // namespace dro
