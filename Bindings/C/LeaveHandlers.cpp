// A symbol alone: static initialisers of the library look for it, and leave the process's handlers
// as they are where it is linked. vexa.cpp refers to it, so that no linker leaves it out.
extern "C" {
extern const char vexa_leaves_handlers;
const char vexa_leaves_handlers = 1;
}
