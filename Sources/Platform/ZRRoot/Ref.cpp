#include "ZR/Ref.h"

namespace ZR {
void ThrowNullReference(const char* file, unsigned int line) {
    throw NullReferenceException("Null reference.", file, line);
}
}  // namespace ZR
