"""comprueba_instala.py CASE FOLDER ZIP VERSION: one case that reads what is installed in FOLDER, or packed in ZIP."""
import hashlib
import json
import pathlib
import re
import sys
import zipfile

SBOM = 'share/doc/ivrexa/ivrexa.spdx.json'


def exige(cierto, texto):
    if not cierto:
        sys.exit(texto)


def ficheros(carpeta):
    """The files below a folder: their names, with slashes, and their bytes."""
    return {f.relative_to(carpeta).as_posix(): f.read_bytes() for f in sorted(carpeta.rglob('*')) if f.is_file()}


def relaciones(sbom, clase):
    return [(r['spdxElementId'], r['relatedSpdxElement']) for r in sbom['relationships']
            if r['relationshipType'] == clase]


def comprueba_ids(sbom):
    """Ids are well-formed and unique, and relationships name what is there."""
    ids = [sbom['SPDXID']] + [x['SPDXID'] for x in sbom['packages'] + sbom['files']]
    exige(len(ids) == len(set(ids)), 'two elements have one id')
    for uno in ids:
        exige(re.fullmatch(r'SPDXRef-[A-Za-z0-9.-]+', uno), f'{uno} is no id')
    for relacion in sbom['relationships']:
        for lado in ('spdxElementId', 'relatedSpdxElement'):
            exige(relacion[lado] in ids, f'{relacion} names what is not there')


def comprueba_cabecera(sbom, version):
    exige(sbom['spdxVersion'] == 'SPDX-2.3' and sbom['dataLicense'] == 'CC0-1.0', 'it is not SPDX 2.3')
    exige(sbom['SPDXID'] == 'SPDXRef-DOCUMENT', 'the document has another id')
    exige(sbom['name'] == f'ivrexa-{version}-win64', f'its name is {sbom["name"]}')
    exige(re.fullmatch(r'https://[^#\s]+-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}', sbom['documentNamespace']),
          f'its namespace is {sbom["documentNamespace"]}')
    exige(re.fullmatch(r'\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ', sbom['creationInfo']['created']), 'it has no time')
    exige(all(c.startswith('Tool: ') for c in sbom['creationInfo']['creators']), 'it has other makers')


def sbom_es_spdx_de_lo_instalado(carpeta, _zip, version):
    hay = ficheros(carpeta)
    sbom = json.loads(hay.pop(SBOM))
    comprueba_cabecera(sbom, version)
    comprueba_ids(sbom)

    descritos = {}
    for uno in sbom['files']:
        exige(uno['fileName'].startswith('./'), f'{uno["fileName"]} is not relative')
        descritos[uno['fileName'][2:]] = {s['algorithm']: s['checksumValue'] for s in uno['checksums']}
    exige(len(descritos) == len(sbom['files']), 'a file is there twice')
    exige(sorted(descritos) == sorted(hay), f'it lists other files: {sorted(set(descritos) ^ set(hay))}')
    for nombre, contenido in hay.items():
        sumas = {'SHA1': hashlib.sha1(contenido).hexdigest(), 'SHA256': hashlib.sha256(contenido).hexdigest()}
        exige(descritos[nombre] == sumas, f'the checksums of {nombre} are others')

    paquete = next(p for p in sbom['packages'] if p['name'] == 'ivrexa')
    exige(paquete['versionInfo'] == version, f'the version is {paquete["versionInfo"]}')
    codigo = paquete['packageVerificationCode']
    todas = ''.join(sorted(hashlib.sha1(c).hexdigest() for c in hay.values()))
    exige(codigo['packageVerificationCodeValue'] == hashlib.sha1(todas.encode()).hexdigest(), 'another code')
    exige(codigo['packageVerificationCodeExcludedFiles'] == ['./' + SBOM], 'the code leaves out other files')
    exige(relaciones(sbom, 'DESCRIBES') == [('SPDXRef-DOCUMENT', paquete['SPDXID'])], 'it describes something else')
    contenidos = [a for de, a in relaciones(sbom, 'CONTAINS') if de == paquete['SPDXID']]
    exige(sorted(contenidos) == sorted(f['SPDXID'] for f in sbom['files']), 'the package contains other files')


def sbom_nombra_lo_ajeno(carpeta, _zip, _version):
    sbom = json.loads((carpeta / SBOM).read_bytes())
    paquetes = {p['SPDXID']: p for p in sbom['packages']}
    nombres = {f['SPDXID']: f['fileName'] for f in sbom['files']}

    dentro = {}
    for de, a in relaciones(sbom, 'STATIC_LINK'):
        dentro.setdefault(paquetes[a]['name'], set()).add(nombres[de])
    las_dos = {'./bin/ivrexactl.exe', './bin/ivrexa-monitor.exe'}
    for pieza, donde in (('CLI11', {'./bin/ivrexactl.exe'}), ('nlohmann-json', las_dos)):
        exige(dentro.get(pieza) == donde, f'{pieza} is in {dentro.get(pieza)}')
    exige(all('./bin/ivrexa.dll' not in d for p, d in dentro.items() if p != 'libvcruntime'),
          'the DLL has something inside it')
    licencias = {p['name']: p['licenseDeclared'] for p in sbom['packages']}
    exige(licencias['CLI11'] == 'BSD-3-Clause' and licencias['nlohmann-json'] == 'MIT', f'licences: {licencias}')

    utiles = {paquetes[de]['name']: paquetes[de].get('versionInfo', '') for de, _ in relaciones(sbom, 'BUILD_TOOL_OF')}
    exige('CMake' in utiles and any(c in utiles for c in ('Clang', 'MSVC')), f'the build tools are {utiles}')
    if 'Clang' in utiles:
        for pieza in ('GCC-runtime-libraries', 'mingw-w64-runtime'):
            exige(dentro.get(pieza) == las_dos, f'{pieza} is in {dentro.get(pieza)}')
    for paquete in sbom['packages']:
        exige(paquete['name'] == 'llvm-dlltool' or re.match(r'\d', paquete.get('versionInfo', '')),
              f'{paquete["name"]} has no version')

    # What the two programs hold speaks for itself.
    for programa in las_dos:
        exige(b'nlohmann' in (carpeta / programa).read_bytes(), f'{programa} does not name nlohmann')
        exige(b'ivrexa.dll' in (carpeta / programa).read_bytes(), f'{programa} does not import the DLL')
    enlaces = {(nombres[de], nombres[a]) for de, a in relaciones(sbom, 'DYNAMIC_LINK')}
    exige(enlaces == {(p, './bin/ivrexa.dll') for p in las_dos}, f'what imports the DLL: {enlaces}')


def zip_tiene_lo_mismo(carpeta, archivo, version):
    raiz = f'ivrexa-{version}-win64/'
    with zipfile.ZipFile(archivo) as abierto:
        exige(abierto.testzip() is None, 'the archive is broken')
        entradas = [e for e in abierto.infolist() if not e.is_dir()]
        exige(all(e.filename.startswith(raiz) for e in entradas), 'something lies outside the one folder')
        empaquetados = {e.filename[len(raiz):]: abierto.read(e) for e in entradas}
        horas = {e.date_time for e in abierto.infolist()}
    hay = ficheros(carpeta)
    exige(sorted(empaquetados) == sorted(hay), f'other files: {sorted(set(empaquetados) ^ set(hay))}')
    for nombre, contenido in hay.items():
        exige(empaquetados[nombre] == contenido, f'{nombre} is another in the archive')
    exige(len(horas) == 1, f'the archive has several times: {horas}')


def los_enlaces_llevan_a_algo(carpeta, _zip, _version):
    malos = []
    for pagina in sorted(carpeta.rglob('*.md')):
        texto = pagina.read_text(encoding='utf-8')
        texto = re.sub(r'(?ms)^```.*?^```|^ {4}.*?$|`[^`\n]*`', '', texto)        # code has brackets of its own
        for destino in re.findall(r'\]\(([^)#\s]+)', texto):
            if '://' not in destino and not (pagina.parent / destino).exists():
                malos.append(f'{pagina.relative_to(carpeta)}: {destino}')
    exige(not malos, 'pages link to what is not installed:\n' + '\n'.join(malos))


if __name__ == '__main__':
    globals()[sys.argv[1]](pathlib.Path(sys.argv[2]), sys.argv[3], sys.argv[4])
