use std::mem::{size_of, MaybeUninit};
use std::ptr::addr_of;
use std::sync::{Mutex, MutexGuard};
use std::thread::spawn;
use std::time::Duration;

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
    for service in ["", &long(64), "a\0b", "\u{4e2d}"] {
        assert!(matches!(offered(service), Err(Error::Text(_))), "{:?}", service);
    }
    assert_eq!(offered(&long(63)), Ok(None));
    assert_eq!(from_ansi(&to_ansi("a\u{f1}o", 3).unwrap()[..3]), "a\u{f1}o");
}

#[test]
fn los_datos_que_no_caben_se_rehusan() {
    let mut data = Data::new();
    let text = |t: &str| t.to_string();
    for (name, value) in [
        (text(&"n".repeat(255)), Value::U8(1)),
        (text("a\0b"), Value::U8(1)),
        (text("a"), Value::Wide(Some(text("a\0b")))),
        (text("a"), Value::Ansi(Some(text("\u{4e2d}")))),
        (text("a"), Value::AnsiList(vec![text("b"), text("\u{4e2d}")])),
        (text("a"), Value::WideList(vec![])),
        (text("a"), Value::Unknown),
    ] {
        assert!(data.add(&name, value).is_err(), "{:?}", name);
        assert!(data.is_empty());
    }
    assert_eq!(data.add(&"n".repeat(254), Value::U8(1)), Ok(()));
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
    assert_eq!(answer.data.values, all().values);
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
    assert_eq!(client.execute(100, &all(), &texts).unwrap().data.values, all().values, "afterwards");
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
