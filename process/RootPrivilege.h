#include "process/LaunchLine.h"
