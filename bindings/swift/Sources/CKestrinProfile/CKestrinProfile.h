#include <KestrinC/kestrin_profile.h>
