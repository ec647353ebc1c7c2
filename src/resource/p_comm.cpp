#include "resource/p_comm.h"

#include "resource/p_line.h"

T_resource_comment::T_resource_comment(T_resource_line *comment_line, T_resource_item **first,
                                       T_resource_item **last, T_resource_item *owner)
    : T_resource_item(first, last, owner), line(comment_line), ident(0)
{
    kind = RESOURCE_KIND_COMMENT;
    if (line != 0)
        line->attached = this;
}

T_resource_comment::~T_resource_comment()
{
    if (line != 0 && line->attached == this)
        line->attached = 0;
}
