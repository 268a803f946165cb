#include "frame/WireOperations.h"

bool TQWNotifyOperation::IsType(TClass cls) {
    return ClassType()->InheritsFrom(cls);
}
