#ifndef P_LINE_H
#define P_LINE_H

#endif
