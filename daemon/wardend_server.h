#ifndef DAEMON_WARDEND_SERVER_H
#define DAEMON_WARDEND_SERVER_H

namespace vesk::wardend {

// Holds the two service objects between StartService and StopService; the only place that
// knows both.
class WardendServer {
public:
    bool StartService();
    void StopService();
};

}  // namespace vesk::wardend

#endif
