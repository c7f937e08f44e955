//! servidor serves command 100 of the examples, as examples/servidor_sin_ventana does.
//!
//!     servidor [--window] [SERVICE]      the service is "Ejemplo" if you name none
//!
//! With --window commands come through a window that is never shown, which is quicker. A client's request ends it.

use std::process::exit;
use std::sync::atomic::{AtomicU32, Ordering};
use std::sync::Arc;

use ivrexa::{Answer, Error, Refusal, Request, Session, Value};

const ECHO: u32 = 100;
const VERSION: u16 = 3; // ours: clients ask for it

fn main() {
    let mut args: Vec<String> = std::env::args().collect();
    let path = args.remove(0);
    let with_window = args.first().map_or(false, |a| a == "--window");
    if with_window {
        args.remove(0);
    }
    if args.len() > 1 {
        eprintln!("usage: servidor [--window] [SERVICE]");
        exit(2);
    }
    let service = args.first().map_or("Ejemplo", |s| s.as_str());
    if let Err(e) = run(&path, service, with_window) {
        eprintln!("{}", e);
        exit(1);
    }
}

fn run(path: &str, service: &str, with_window: bool) -> Result<(), Error> {
    ivrexa::claim(service)?; // two servers would disturb each other
    let session = if with_window { Session::open_window(path)? } else { Session::open(path)? };
    let commands = Arc::new(AtomicU32::new(0));
    let counted = commands.clone();
    session.serve(service, VERSION, move |request| {
        let answer = process(request)?;
        counted.fetch_add(1, Ordering::SeqCst);
        Ok(answer)
    })?;
    session.publish(); // from here on clients find the service
    println!("ready: {}", service);
    session.wait();
    println!("ended after {} commands", commands.load(Ordering::SeqCst));
    Ok(())
}

// Makes the output from the input. Another program wrote it, so expect anything: a value of another type reads as 0 or
// nothing.
fn process(request: &Request) -> Result<Answer, Refusal> {
    let input = &request.input;
    if request.command != ECHO || input.len() != 5 {
        return Err(Refusal::Refused);
    }
    for text in &request.texts.0 {
        println!("got  text \"{}\"", text);
    }
    let a = input.number(0).unwrap_or(0);
    let b = input.double(1).unwrap_or(0.0);
    let words = input.texts(2).map_or(0, |t| t.len());
    let greeting = format!("Hola, {}", input.text(3).unwrap_or(""));
    let bytes = input.bytes(4).unwrap_or(&[]);
    println!("got  a={} b={} bytes={} palabras={} \"{}\"", a, b, bytes.len(), words, greeting);

    let mut answer = Answer { texts: request.texts.clone(), ..Answer::default() };
    let sum = f64::from(a) + b;
    answer.data.add("suma", Value::F64(sum))?;
    answer.data.add("saludo", Value::Wide(Some(greeting)))?;
    answer.data.add("bytes", Value::Bytes(bytes.to_vec()))?;
    println!("sent suma={} bytes={} and the three texts", sum, bytes.len());
    Ok(answer)
}
