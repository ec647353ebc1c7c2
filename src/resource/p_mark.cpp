#include "resource/p_mark.h"
