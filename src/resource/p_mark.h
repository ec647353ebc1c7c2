#ifndef P_MARK_H
#define P_MARK_H
/* The characters of the resource file syntax, each defined once. */

char get_RESOURCE_MARK_TILDA(void);    /* '~': suffix of the backup file name */
char get_RESOURCE_MARK_ENDLINE(void);  /* '\0': string terminator */
char get_RESOURCE_MARK_RETURN(void);   /* '\n': line end */
char get_RESOURCE_MARK_TAB(void);      /* '\t' */
char get_RESOURCE_MARK_SPACE(void);    /* ' ' */
char get_RESOURCE_MARK_NEXTLINE(void); /* '\\': the value continues on the next line */
char get_RESOURCE_MARK_COMMENT(void);  /* '!' */
char get_RESOURCE_MARK_STAR(void);     /* '*': separator */
char get_RESOURCE_MARK_POINT(void);    /* '.': the other separator */
char get_RESOURCE_MARK_COLON(void);    /* ':' */
/* "ZDR", the prefix of every resource line; a static string, never freed. */
const char *get_RESOURCE_MARK_RESOURCE(void);

#endif
