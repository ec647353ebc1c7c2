#include "resource/p_mana.h"
