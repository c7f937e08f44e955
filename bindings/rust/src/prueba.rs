use std::ffi::{c_void, CString};
use std::io::{stderr, Write};
use std::mem::{size_of, MaybeUninit};
use std::os::raw::c_char;
use std::ptr::{addr_of, null};
use std::sync::atomic::{AtomicBool, Ordering};
use std::sync::mpsc::channel;
use std::sync::{Mutex, MutexGuard};
use std::thread::{scope, sleep, spawn};
use std::time::Duration;

use crate::container::{self, Container};
use crate::system::{GetACP, CP_UTF8};
use crate::texts::{from_ansi, to_ansi};
use crate::*;

// A process has one session at a time.
static ONE: Mutex<u32> = Mutex::new(0);

fn alone() -> MutexGuard<'static, u32> {
    ONE.lock().unwrap_or_else(|e| e.into_inner())
}

fn unique_service(number: &mut u32) -> String {
    *number += 1;
    format!("Rust_{}_{}", std::process::id(), number)
}

/// What bindings/ivrexa.json says, a line each: "function NAME", "record NAME SIZE", "field RECORD NAME OFFSET SIZE".
fn lines(kind: &str) -> Vec<String> {
    let path = std::env::var("IVREXA_LISTA").expect("IVREXA_LISTA names the list");
    let text = std::fs::read_to_string(path).expect("the list");
    let kind = format!("{} ", kind);
    text.lines().filter_map(|line| line.strip_prefix(&kind)).map(|line| line.to_string()).collect()
}

#[test]
fn las_50_funciones_de_la_lista_estan_y_la_dll_las_tiene() {
    let bound: Vec<_> = raw::funciones().iter().map(|(name, _)| name.to_string()).collect();
    assert_eq!(bound, lines("function"));
    assert_eq!(bound.len(), 50);
    assert!(raw::funciones().iter().all(|(_, address)| !address.is_null()));
}

macro_rules! field {
    ($record:ident, $field:ident) => {{
        let it = MaybeUninit::<raw::$record>::uninit();
        let offset = unsafe { addr_of!((*it.as_ptr()).$field) as usize - it.as_ptr() as usize };
        format!("{} {} {}", stringify!($record), stringify!($field), offset)
    }};
}

fn offsets() -> Vec<String> {
    vec![
        field!(comando, datos_entrada),
        field!(comando, datos_salida),
        field!(comando, hwnd_cliente),
        field!(comando, hwnd_servidor),
        field!(iv_mcbase_actividad_t, ind_datServ),
        field!(iv_mcbase_actividad_t, dato1),
        field!(iv_mcbase_actividad_t, dato2),
        field!(iv_mcbase_actividad_t, tipo_programa),
        field!(iv_mcbase_actividad_t, tipo_actividad),
        field!(iv_mcbase_actividad_t, indicador),
        field!(iv_mcbase_programa_t, nombre),
        field!(iv_mcbase_programa_t, hwnd),
        field!(iv_mcbase_programa_t, es_servidor),
        field!(iv_mcbase_programa_t, es_cliente),
        field!(iv_mcbase_programa_t, es_monitor),
        field!(iv_mcbase_programa_t, contador_vivo),
        field!(datServ, nombre),
        field!(datServ, id_programa_servidor),
        field!(datServ, id_programa_cliente),
        field!(datServ, bucle_servidor_estado),
        field!(datServ, bucle_servidor_vueltas),
        field!(datServ, bucle_servidor_vivo_cliente),
        field!(datServ, id_comando_en_curso),
        field!(datServ, bucle_cliente_estado),
        field!(datServ, bucle_cliente_vueltas),
        field!(datServ, bucle_cliente_vivo_servidor),
        field!(iv_mcbase_t, tam_bloque),
        field!(iv_mcbase_t, version),
        field!(iv_mcbase_t, num_registros),
        field!(iv_mcbase_t, hwnd_monitor),
        field!(iv_mcbase_t, msg_monitor),
        field!(iv_mcbase_t, num_actividad_siguiente),
        field!(iv_mcbase_t, actividades),
        field!(iv_mcbase_t, programas),
        field!(iv_mcbase_t, servicios),
    ]
}

#[test]
fn los_registros_tienen_los_desplazamientos_de_la_lista() {
    let without_size = |line: String| line.rsplit_once(' ').map(|(rest, _)| rest.to_string());
    let listed: Vec<_> = lines("field").into_iter().filter_map(without_size).collect();
    assert_eq!(offsets(), listed);
    let sizes = [
        ("comando", size_of::<raw::comando>()),
        ("iv_mcbase_actividad_t", size_of::<raw::iv_mcbase_actividad_t>()),
        ("iv_mcbase_programa_t", size_of::<raw::iv_mcbase_programa_t>()),
        ("datServ", size_of::<raw::datServ>()),
        ("iv_mcbase_t", size_of::<raw::iv_mcbase_t>()),
    ];
    let sizes: Vec<_> = sizes.iter().map(|(name, size)| format!("{} {}", name, size)).collect();
    assert_eq!(sizes, lines("record"));
}

#[test]
fn los_textos_que_no_caben_se_rehusan() {
    let long = |n| "x".repeat(n);
    let texts = |first: &str, second: &str, third: &str| Texts::new(first, second, third).wide().map(|_| ());
    for refused in [
        texts(&long(64), "", ""),
        texts("", &long(256), ""),
        texts("", "", &long(256)),
        texts("a\0b", "", ""),
        texts(&"\u{1F600}".repeat(32), "", ""),
    ] {
        assert!(matches!(refused, Err(Error::Text(_))));
    }
    assert_eq!(texts(&long(63), &long(255), &"\u{1F600}".repeat(127)), Ok(()));
    for service in ["", &long(64), "a\0b"].into_iter().chain(not_ansi()) {
        assert!(matches!(offered(service), Err(Error::Text(_))), "{:?}", service);
    }
    assert_eq!(offered(&long(63)), Ok(None));
    assert_eq!(from_ansi(&to_ansi("a\u{f1}o", 3).unwrap()[..3]), "a\u{f1}o");
}

/// A text that no ANSI code page has but UTF-8, which has all.
fn not_ansi() -> Option<&'static str> {
    Some("\u{1F600}").filter(|_| unsafe { GetACP() } != CP_UTF8)
}

#[test]
fn los_datos_que_no_caben_se_rehusan() {
    let mut data = Data::new();
    let text = |t: &str| t.to_string();
    if let Some(foreign) = not_ansi() {
        assert!(matches!(data.add("a", Value::Ansi(Some(text(foreign)))), Err(Error::Text(_))));
        assert!(matches!(data.add("a", Value::AnsiList(vec![text("b"), text(foreign)])), Err(Error::Text(_))));
    }
    for (name, value) in [
        (text(&"n".repeat(255)), Value::U8(1)),
        (text("a\0b"), Value::U8(1)),
        (text("a"), Value::Wide(Some(text("a\0b")))),
        (text("a"), Value::WideList),
    ] {
        assert!(data.add(&name, value).is_err(), "{:?}", name);
        assert!(data.is_empty());
    }
    assert_eq!(data.add(&"n".repeat(254), Value::U8(1)), Ok(()));
    data.size = u32::MAX as u64 - 700;
    assert!(matches!(data.add("past 4 GiB", Value::Bytes(vec![0; 1000])), Err(Error::Data(_))));
    assert_eq!(data.add("behind", Value::U8(1)), Ok(()), "what was refused takes no room");
}

/// One value of every type that can be written, among them a wide text at an odd address.
fn all() -> Data {
    let text = |t: &str| Some(t.to_string());
    let mut data = Data::new();
    for (name, value) in [
        ("byte", Value::U8(255)),
        ("ushort", Value::U16(65535)),
        ("a\u{f1}o", Value::U32(u32::MAX)),
        ("double", Value::F64(-2.5e-300)),
        ("window", Value::Window(0x7fff_ffff_1234_5678)),
        ("bytes", Value::Bytes(vec![0, 1, 255])),
        ("no bytes", Value::Bytes(vec![])),
        ("ansi", Value::Ansi(text("a\u{f1}o"))),
        ("", Value::Ansi(text(""))),
        ("null", Value::Ansi(None)),
        ("wide", Value::Wide(text("a\u{f1}o \u{4e2d} \u{1F600}"))),
        ("odd+", Value::Wide(text("odd"))),
        ("null", Value::Wide(None)),
        ("list", Value::AnsiList(vec!["uno".to_string(), String::new(), "a\u{f1}o".to_string()])),
        ("no list", Value::AnsiList(vec![])),
        ("last", Value::U8(7)),
    ] {
        data.add(name, value).unwrap();
    }
    data
}

// Answers each command of the tests in its own way.
fn handle(request: &Request) -> Result<Answer, Refusal> {
    let [first, second, third] = &request.texts.0;
    let mut answer = Answer::default();
    match request.command {
        100 => {
            answer.data = request.input.clone();
            answer.texts = Texts::new(third, first, second);
        }
        101 => {}
        102 => return Err(Refusal::Cancelled),
        103 => return Err(Refusal::Refused),
        104 => return Err(Refusal::Result(77)),
        105 => panic!("of a handler"),
        106 => answer.texts = Texts::new(&"x".repeat(64), "", ""),
        108 => return Err(Refusal::Result(1)),
        _ => answer.data.add(&"n".repeat(255), Value::U8(1))?,
    }
    Ok(answer)
}

fn reason(outcome: Result<Answer, Error>) -> (u32, Reason) {
    match outcome {
        Err(Error::Command(e)) => (e.result, e.reason),
        other => panic!("{:?}", other),
    }
}

fn converse(session: Session, service: &str) {
    session.serve(service, 7, handle).unwrap();
    session.publish();
    assert_eq!(offered(service), Ok(Some(7)));
    assert_eq!(first_offered(&service[..service.len() - 1]), Ok(Some((service.to_string(), 7))));
    let client = session.client(service).unwrap();

    let texts = Texts::new("corto", "a\u{f1}o", "\u{4e2d}");
    let answer = client.execute(100, &all(), &texts).unwrap();
    assert_eq!(answer.data, all());
    assert_eq!(answer.texts, Texts::new("\u{4e2d}", "corto", "a\u{f1}o"));
    let answer = client.execute(101, &Data::new(), &texts).unwrap();
    assert_eq!((answer.data.len(), answer.texts, answer.output_block), (0, Texts::default(), 0));

    for (command, result, why) in [
        (102, 2, Reason::Cancelled),
        (103, 3, Reason::Refused),
        (104, 77, Reason::Other),
        (105, 3, Reason::Refused),
        (106, 3, Reason::Refused),
        (107, 3, Reason::Refused),
    ] {
        assert_eq!(reason(client.execute(command, &Data::new(), &texts)), (result, why), "{}", command);
    }
    assert_eq!(client.execute(100, &all(), &texts).unwrap().data, all(), "afterwards");
    let answer = client.execute(108, &Data::new(), &texts).unwrap();
    assert_eq!((answer.data.len(), answer.texts, answer.output_block), (0, Texts::default(), 0), "OK as a refusal");
    end_server(service).unwrap();
    session.wait();
}

#[test]
fn todo_va_y_vuelve_con_un_servidor_con_ventana() {
    let mut number = alone();
    converse(Session::open_window("prueba.exe").unwrap(), &unique_service(&mut number));
}

#[test]
fn todo_va_y_vuelve_con_un_servidor_sin_ventana() {
    let mut number = alone();
    converse(Session::open("prueba.exe").unwrap(), &unique_service(&mut number));
}

#[test]
fn con_ventana_se_puede_abrir_otra_sesion_en_el_mismo_proceso() {
    let mut number = alone();
    for _ in 0..3 {
        let (session, service) = (Session::open_window("prueba.exe").unwrap(), unique_service(&mut number));
        session.serve(&service, 7, handle).unwrap();
        session.publish();
        let client = session.client(&service).unwrap();
        assert!(client.execute(101, &Data::new(), &Texts::default()).is_ok());
        end_server(&service).unwrap();
        session.wait();
    }
}

#[test]
fn acabado_un_servicio_los_demas_de_la_sesion_siguen() {
    let mut number = alone();
    let session = Session::open_window("prueba.exe").unwrap();
    let (ends, other) = (unique_service(&mut number), unique_service(&mut number));
    for service in [&ends, &other] {
        session.serve(service, 7, handle).unwrap();
    }
    session.publish();
    let _asks = session.client(&ends).unwrap();
    let client = &session.client(&other).unwrap();
    end_server(&ends).unwrap();
    session.wait();
    let (done, ended) = channel();
    scope(|threads| {
        threads.spawn(move || done.send(client.execute(100, &all(), &Texts::default()).map(|answer| answer.data)));
        let came = ended.recv_timeout(Duration::from_secs(30));
        if came != Ok(Ok(all())) {
            let _ = writeln!(stderr(), "the other service: {:?}", came);
            std::process::exit(1); // the thread may never end
        }
    });
}

#[repr(C)]
struct View([u8; 4096]);

extern "system" {
    fn OpenFileMappingA(access: u32, inherit: i32, name: *const c_char) -> *mut c_void;
    fn MapViewOfFile(block: *mut c_void, access: u32, high: u32, low: u32, size: usize) -> *mut View;
    fn UnmapViewOfFile(view: *mut View) -> i32;
    fn CloseHandle(handle: *mut c_void) -> i32;
    fn FindWindowA(class: *const c_char, title: *const c_char) -> *mut c_void;
    fn PostMessageA(hwnd: *mut c_void, message: u32, wparam: usize, lparam: isize) -> i32;
}

fn c(text: &str) -> CString {
    CString::new(text).unwrap()
}

/// Reads what was written, after a change in the block: what is read is another program's. Then tries to write it.
fn forged(write: impl Fn(*mut raw::comdat), change: impl Fn(&mut [u8])) -> (Data, Result<(), Error>) {
    let service = unique_service(&mut alone());
    let session = Session::open_window("prueba.exe").unwrap();
    session.serve(&service, 7, handle).unwrap();
    session.publish();
    let _client = session.client(&service).unwrap();
    let name = c(&service);
    unsafe {
        let written = raw::ivrexa_crea_datos_comando_entrada(name.as_ptr());
        write(written);
        let block = raw::ivrexa_guarda_datos(written);
        change_block(&format!("Ivrexa_MCB_Serv_{}_Com__comdat{}", service, block), change);
        let container = raw::ivrexa_lee_datos(name.as_ptr(), block, raw::CIERTO);
        assert!(!container.is_null());
        let read = container::read(container);
        raw::ivrexa_destruye_datos_comando(container);
        raw::ivrexa_destruye_datos_comando(written);
        let again = Container::store(&read, name.as_bytes_with_nul(), true).map(|_| ());
        (read, again)
    }
}

unsafe fn change_block(name: &str, change: impl Fn(&mut [u8])) {
    const ALL: u32 = 0xf001f; // FILE_MAP_ALL_ACCESS
    let block = OpenFileMappingA(ALL, 0, c(name).as_ptr());
    let view = MapViewOfFile(block, ALL, 0, 0, 0);
    assert!(!view.is_null(), "{}", name);
    change(&mut (*view).0[4..]); // behind the size
    UnmapViewOfFile(view);
    CloseHandle(block);
}

// The first position of a wide array, 16 here, is taken for its count. Zeros behind it make that many texts.
#[test]
fn un_arreglo_de_textos_anchos_se_lee_vacio_y_lo_que_sigue_tambien() {
    let mut behind = [0u8; 200];
    behind[108..113].copy_from_slice(&[raw::ivrexa_tipoDato_byte as u8, 2, b'b', 0, 7]);
    let write = |container| unsafe {
        raw::ivrexa_graba_arr_cadenas_unicode(container, c("r").as_ptr(), null(), 2);
        raw::ivrexa_graba_buffer(container, c("z").as_ptr(), behind.as_ptr() as *const c_void, 200);
    };
    let (read, again) = forged(write, |_| ());
    let expected = vec![("r".to_string(), Value::WideList), ("b".to_string(), Value::U8(7))];
    assert_eq!(read.values, expected);
    assert!(matches!(again, Err(Error::Data(_))));
}

#[test]
fn un_texto_fuera_del_contenido_es_vacio() {
    let write = |container| unsafe {
        let (one, other) = (c("uno"), c("dos"));
        raw::ivrexa_graba_arr_cadenas_ansi(container, c("r").as_ptr(), [one.as_ptr(), other.as_ptr()].as_ptr(), 2);
        raw::ivrexa_graba_byte(container, c("b").as_ptr(), 7);
    };
    let second_position = |block: &mut [u8]| block[16..20].copy_from_slice(&[0, 0xff, 0xff, 0xff]);
    let (read, again) = forged(write, second_position);
    assert_eq!(read.get(0), Some(&Value::AnsiList(vec!["uno".to_string(), String::new()])));
    assert_eq!(read.get(1), Some(&Value::U8(7)));
    assert_eq!(again, Ok(()));
}

#[test]
fn un_tipo_que_no_existe_acaba_los_valores() {
    let write = |container| unsafe {
        raw::ivrexa_graba_byte(container, c("a").as_ptr(), 1);
        raw::ivrexa_graba_ulong(container, c("b").as_ptr(), 0x07000101); // a byte without a name, once it is no number
        raw::ivrexa_graba_byte(container, c("c").as_ptr(), 9);
    };
    let (read, _) = forged(write, |block| block[9] = 11); // the type of "b"
    assert_eq!(read.values, vec![("a".to_string(), Value::U8(1))]);
}

// The library reports the lie in a box, which somebody must close.
#[test]
fn la_cuenta_de_valores_puede_mentir() {
    let (stop, closed) = (AtomicBool::new(false), AtomicBool::new(false));
    let write = |container| unsafe { raw::ivrexa_graba_byte(container, c("b").as_ptr(), 7) };
    let read = scope(|threads| {
        threads.spawn(|| {
            while !stop.load(Ordering::SeqCst) {
                let command = 0x111;
                let hwnd = unsafe { FindWindowA(c("#32770").as_ptr(), c("Assert ivrexa").as_ptr()) };
                if !hwnd.is_null() {
                    unsafe { PostMessageA(hwnd, command, 1, 0) };
                    closed.store(true, Ordering::SeqCst);
                }
                sleep(Duration::from_millis(20));
            }
        });
        let (read, _) = forged(write, |block| block[..4].copy_from_slice(&1_000_000u32.to_le_bytes()));
        stop.store(true, Ordering::SeqCst);
        read
    });
    assert_eq!(read.values, vec![("b".to_string(), Value::U8(7))]);
    assert!(closed.load(Ordering::SeqCst), "the library reports it");
}

#[test]
fn un_nombre_leido_que_no_cabe_no_se_escribe() {
    let write = |container| unsafe {
        raw::ivrexa_graba_byte(container, c(&"n".repeat(254)).as_ptr(), 7);
        raw::ivrexa_graba_byte(container, c("b").as_ptr(), 8);
    };
    let (read, again) = forged(write, |block| block[4 + 2 + 254] = b'n'); // its NUL
    assert_eq!(read.name(0).map(|name| name.len()), Some(255 + "\x07\x01\x02b".len()));
    assert!(matches!(again, Err(Error::Text(_))));
}

#[test]
fn un_comando_de_la_biblioteca_se_rehusa_y_no_llega() {
    let mut number = alone();
    let (session, service) = (Session::open("prueba.exe").unwrap(), unique_service(&mut number));
    session.serve(&service, 7, handle).unwrap();
    session.publish();
    let client = session.client(&service).unwrap();
    for command in [0, 1, 2, 99] {
        let refused = client.execute(command, &all(), &Texts::default());
        let why = format!("command {} is the library's: yours are 100 and up", command);
        assert_eq!(refused.map(|answer| answer.data), Err(Error::Data(why)));
    }
    assert!(client.execute(101, &Data::new(), &Texts::default()).is_ok(), "the server is still there");
}

/// Lets a handler end its own service; what it got. What hangs ends the process, since the session could not be closed.
fn own_end(session: Session, service: &str) -> Result<(), Error> {
    let (asked, told) = channel();
    let asked = Mutex::new(asked);
    let handler = move |request: &Request| {
        asked.lock().unwrap().send(end_server(&request.service)).unwrap();
        Ok(Answer::default())
    };
    session.serve(service, 7, handler).unwrap();
    session.publish();
    let client = session.client(service).unwrap();
    let ((done, ended), session) = (channel(), &session);
    scope(|threads| {
        threads.spawn(move || {
            let answer = client.execute(100, &Data::new(), &Texts::default());
            let asked = told.recv().unwrap();
            if asked.is_err() {
                end_server(service).unwrap();
            }
            session.wait();
            done.send((answer.is_ok(), asked)).unwrap();
        });
        match ended.recv_timeout(Duration::from_secs(30)) {
            Ok((true, asked)) => asked,
            other => {
                let _ = writeln!(stderr(), "the command, and the wait for the service's end: {:?}", other);
                std::process::exit(1);
            }
        }
    })
}

#[test]
fn sin_ventana_un_servicio_no_se_acaba_desde_su_funcion() {
    let service = unique_service(&mut alone());
    let asked = own_end(Session::open("prueba.exe").unwrap(), &service);
    assert_eq!(asked, Err(Error::Session(format!("the handler of {} cannot end it", service))));
}

#[test]
fn con_ventana_un_servicio_se_acaba_desde_su_funcion() {
    let service = unique_service(&mut alone());
    assert_eq!(own_end(Session::open_window("prueba.exe").unwrap(), &service), Ok(()));
}

#[test]
fn sin_servidor_no_se_envia_nada() {
    let mut number = alone();
    let session = Session::open("prueba.exe").unwrap();
    assert!(matches!(Session::open("otra.exe"), Err(Error::Session(_))));
    let client = session.client(&unique_service(&mut number)).unwrap();
    assert_eq!(reason(client.execute(100, &all(), &Texts::default())), (0, Reason::NotOffered));
}

#[test]
fn el_servicio_17_se_rehusa() {
    let mut number = alone();
    let session = Session::open("prueba.exe").unwrap();
    for _ in 0..16 {
        assert!(session.client(&unique_service(&mut number)).is_ok());
    }
    assert!(matches!(session.client(&unique_service(&mut number)), Err(Error::Session(_))));
}

#[test]
fn el_otro_turno_espera_y_la_segunda_plaza_se_niega() {
    let service = unique_service(&mut alone());
    assert_eq!(claim(&service), Ok(()));
    assert_eq!(claim(&service), Err(Error::Taken(service.clone())));
    let take = |service: &str| {
        let service = service.to_string();
        spawn(move || take_turn(&service, Duration::ZERO).map(|_| ())).join().unwrap()
    };
    let turn = take_turn(&service, Duration::ZERO).unwrap();
    assert!(matches!(take(&service), Err(Error::Turn(_))));
    drop(turn);
    assert_eq!(take(&service), Ok(()));
}
