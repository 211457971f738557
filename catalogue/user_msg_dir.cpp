#include "catalogue/user_msg_dir.h"

namespace vesk::wardend {

ara::core::String userMsgDir;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace vesk::wardend
