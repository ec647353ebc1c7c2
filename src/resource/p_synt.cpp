#include "resource/p_synt.h"
