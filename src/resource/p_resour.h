#ifndef P_RESOUR_H
#define P_RESOUR_H

#endif
