#include "platform/exit_status.h"

int exitStatus = 0;
