#include "resource/p_comm.h"
