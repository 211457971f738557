#include "registry/event_info_manage.h"

namespace vesk::wardend {

EventInfoManage& EventInfoManage::GetInstance() {
    static EventInfoManage instance;
    return instance;
}

}  // namespace vesk::wardend
