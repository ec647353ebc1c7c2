#include "resource/p_line.h"
