#include "resource/p_tool.h"
