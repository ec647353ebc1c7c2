#ifndef P_TOOL_H
#define P_TOOL_H

#endif
