#include "resource/p_resour.h"
