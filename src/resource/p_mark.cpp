#include "resource/p_mark.h"

char get_RESOURCE_MARK_TILDA(void)
{
    return '~';
}
char get_RESOURCE_MARK_ENDLINE(void)
{
    return '\0';
}
char get_RESOURCE_MARK_RETURN(void)
{
    return '\n';
}
char get_RESOURCE_MARK_TAB(void)
{
    return '\t';
}
char get_RESOURCE_MARK_SPACE(void)
{
    return ' ';
}
char get_RESOURCE_MARK_NEXTLINE(void)
{
    return '\\';
}
char get_RESOURCE_MARK_COMMENT(void)
{
    return '!';
}
char get_RESOURCE_MARK_STAR(void)
{
    return '*';
}
char get_RESOURCE_MARK_POINT(void)
{
    return '.';
}
char get_RESOURCE_MARK_COLON(void)
{
    return ':';
}
const char *get_RESOURCE_MARK_RESOURCE(void)
{
    return "ZDR";
}
