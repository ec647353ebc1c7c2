#ifndef P_SYNT_H
#define P_SYNT_H
/* Recognition of the lines of a resource file. */

class T_resource_line;

/* Walks the lines from `first` to the end of its file and defines every resource found
   ("ZDR*Tool*Name: value", either separator '*' or '.') in the process-wide manager; a
   later definition replaces an earlier one. Comment lines ('!') go to the next resource
   defined. Blank lines are ignored; a line not starting with the mark is ignored with
   "FILE:N: Resource line ignored: ..." on stderr, and a malformed resource line is
   reported as "FILE:N: Resource syntax error: WHY" and skipped. A value starting with '\' continues
   on the next line; when the file ends first the value is empty. Lines that already carry an item
   are left as they are, so a list can be analysed again safely. Does nothing to the store without a
   manager. */
void syntax_analysis(T_resource_line *first);

#endif
