#include "resource/p_item.h"
