/* see below */
int instrumentdac_placeholder;
