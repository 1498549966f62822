#include "OtherUser.h"

#include <cstdlib>
#include <unistd.h>

bool RunAsUser(unsigned int user, const std::function<void()>& function) {
    const uid_t self = geteuid();
    if (seteuid(user) != 0)
        return false;
    function();
    if (seteuid(self) != 0)
        std::abort(); // the tests behind would run as somebody else
    return true;
}
