#include "platform/serialize/serialize_config.h"

namespace lumo::serialize {

const SerializeConfig& DefaultSerializeConfig() {
    static const SerializeConfig config;
    return config;
}

}  // namespace lumo::serialize
