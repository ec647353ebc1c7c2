#include "resource/p_string.h"
