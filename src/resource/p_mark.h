#ifndef P_MARK_H
#define P_MARK_H

#endif
