// The floor beneath loading: a DLL that has an entry point and nothing else. It imports nothing.
int __stdcall DllMain(void *modulo, unsigned long motivo, void *reservado)
{
    (void)modulo;
    (void)motivo;
    (void)reservado;
    return 1;
}
