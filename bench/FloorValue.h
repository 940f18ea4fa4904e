// The floor of a configured-value getter: one virtual call whose body tests
// DEBUG on the add-on's logger. Its implementation lives in a translation unit
// of its own, so that the compiler cannot devirtualise the benchmark's call.
#ifndef BENCH_FLOOR_VALUE_H
#define BENCH_FLOOR_VALUE_H

#include <memory>

class LoggedValue {
public:
    virtual ~LoggedValue() = default;
    virtual unsigned long Get() = 0;
};

std::unique_ptr<LoggedValue> MakeFloorValue();

#endif
