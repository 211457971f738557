#ifndef CATALOGUE_USER_MSG_DIR_H
#define CATALOGUE_USER_MSG_DIR_H

#include "platform/core/string.h"

namespace vesk::wardend {

// The directory given with -p, always ending in '/'; empty without -p. Written once by main
// before any thread runs, read without a lock afterwards.
extern ara::core::String userMsgDir;

}  // namespace vesk::wardend

#endif
