#ifndef P_ITEM_H
#define P_ITEM_H

#endif
