//! cliente runs command 100 of the examples and prints what comes back, as examples/cliente_c does.
//!
//!     cliente [SERVICE]      the service is "Ejemplo" if you name none
//!
//! Ends with 0 if the command was carried out, with 1 if not.

use std::process::exit;
use std::time::Duration;

use ivrexa::{Answer, Client, Data, Error, Session, Texts, Value};

const ECHO: u32 = 100;
const VERSION: u16 = 3; // what the server of the service understands

fn main() {
    let args: Vec<String> = std::env::args().collect();
    if args.len() > 2 {
        eprintln!("usage: cliente [SERVICE]");
        exit(2);
    }
    let service = args.get(1).map_or("Ejemplo", |s| s.as_str());
    if let Err(what) = run(&args[0], service) {
        println!("{}", what);
        exit(1);
    }
}

fn run(path: &str, service: &str) -> Result<(), String> {
    let text = |e: Error| e.to_string();
    if ivrexa::offered(service).map_err(text)? != Some(VERSION) {
        return Err(format!("nobody offers {} in version {}: start a server first", service, VERSION));
    }
    let _turn = ivrexa::take_turn(service, Duration::from_secs(60)).map_err(text)?; // clients of one service take turns
    let session = Session::open(path).map_err(text)?;
    let client = session.client(service).map_err(text)?;
    execute(&client)
}

fn input() -> Result<Data, Error> {
    let words = ["uno", "dos", "tres"].iter().map(|w| w.to_string()).collect();
    let mut input = Data::new();
    input.add("a", Value::U32(40))?;
    input.add("b", Value::F64(2.5))?;
    input.add("palabras", Value::AnsiList(words))?;
    input.add("nombre", Value::Ansi(Some("mundo".to_string())))?;
    input.add("bytes", Value::Bytes((0..1000u32).map(|i| (i * 7) as u8).collect()))?;
    Ok(input)
}

fn execute(client: &Client) -> Result<(), String> {
    let input = input().map_err(|e| e.to_string())?;
    match client.execute(ECHO, &input, &Texts::new("corto", "año nuevo", "tercer texto")) {
        Ok(answer) => {
            tell_sent(answer.input_block);
            tell(&answer);
            Ok(())
        }
        Err(Error::Command(e)) => {
            tell_sent(e.input_block);
            Err(format!("got  result {}: {}", e.result, e.reason))
        }
        Err(e) => Err(e.to_string()),
    }
}

fn tell_sent(block: u32) {
    println!("sent a=40 b=2.5 palabras=uno,dos,tres nombre=\"mundo\" bytes=1000, input block {}", block);
}

// Another program wrote what came: a value of another type reads as nothing.
fn tell(answer: &Answer) {
    println!("got  result 1: OK");
    for (i, text) in answer.texts.0.iter().enumerate() {
        println!("got  text {} \"{}\"", i + 1, text);
    }
    if answer.data.is_empty() {
        println!("no output data");
        return;
    }
    let sum = answer.data.double(0).unwrap_or(0.0);
    let greeting = answer.data.text(1).unwrap_or("");
    let bytes = answer.data.bytes(2).unwrap_or(&[]);
    println!("got  suma={} bytes={} saludo=\"{}\"", sum, bytes.len(), greeting);
}
