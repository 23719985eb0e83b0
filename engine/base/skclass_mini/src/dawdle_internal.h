// Shared by Dawdle and the COM pause: both count the request and scale it here.
#pragma once

namespace skclass {
namespace detail {

// Adds milliseconds to the requested total and returns them scaled (rounded down).
unsigned long RecordAndScaleDawdle(unsigned long milliseconds);

}  // namespace detail
}  // namespace skclass
