#include "resource/p_file.h"
