#include <stdio.h>

#include <KestrinC/kestrin_profile.h>

int main(void) {
    return puts(kestrin_version()) < 0;
}
