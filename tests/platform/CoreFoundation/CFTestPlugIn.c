/* Stand-in plug-in binary, loaded with dlopen from a bundle. */
__attribute__((visibility("default"))) int CFTestPlugInAnswer(void);

int CFTestPlugInAnswer(void)
{
    return 42;
}
