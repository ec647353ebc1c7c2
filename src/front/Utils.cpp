#include "front/Utils.h"

std::string baseNameOfPath(const std::string& path) {
    const std::string::size_type dot = path.rfind('.');
    const std::string::size_type sep = path.find_last_of("/\\");
    if (sep == std::string::npos)
        return dot == std::string::npos ? path : path.substr(0, dot);
    if (dot == std::string::npos || dot < sep)
        return path.substr(sep + 1);
    return path.substr(sep + 1, dot - sep - 1);
}
