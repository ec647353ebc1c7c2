#ifndef P_COMM_H
#define P_COMM_H
/* A comment line of a resource file, kept with the resource defined after it.

   Ownership: while the parser looks for that resource the comment sits in its pending
   list; afterwards it belongs to the ident's comment list (father and `ident` are the
   ident), and it dies with the ident. It does not own its line: whichever of the two is
   destroyed first makes the other forget it. */

#include "resource/p_item.h"

class T_resource_line;
class T_resource_ident;

class T_resource_comment : public T_resource_item
{
public:
    /* The comment line, or null once that line has been destroyed. */
    T_resource_line *line;
    /* The resource the comment precedes, or null while it is pending. */
    T_resource_ident *ident;

    /* Attaches the new comment to `comment_line`; appends it to (first, last). */
    T_resource_comment(T_resource_line *comment_line, T_resource_item **first,
                       T_resource_item **last, T_resource_item *father);
    virtual ~T_resource_comment();
};

#endif
