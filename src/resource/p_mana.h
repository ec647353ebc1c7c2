#ifndef P_MANA_H
#define P_MANA_H

#endif
