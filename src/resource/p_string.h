#ifndef P_STRING_H
#define P_STRING_H

#endif
