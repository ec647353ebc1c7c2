#ifndef P_SYNT_H
#define P_SYNT_H

#endif
