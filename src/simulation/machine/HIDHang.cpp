#include "simulation/machine/HIDHang.h"

#include "simulation/machine/Decoding.h"

namespace airflow::simulation {

using namespace decoding;

HIDHang HIDHang::decode(const Decoder& decoder) {
    decoder.onlyKeys({"from", "until"});
    HIDHang hang;
    hang.from = optionalSeconds(decoder, "from", hang.from);
    hang.until = optionalSeconds(decoder, "until", hang.until);
    if (hang.until <= hang.from) decoder.fail("A hang ends after it has begun.");
    return hang;
}

}  // namespace airflow::simulation
