/* The header that the command line includes is all that this needs. */
typedef int nothing_else;
