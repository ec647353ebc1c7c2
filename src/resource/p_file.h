#ifndef P_FILE_H
#define P_FILE_H

#endif
