#ifndef P_COMM_H
#define P_COMM_H

#endif
