// For those who build with cargo: IVREXA_LIB_DIR names the folder of the import library.
fn main() {
    println!("cargo:rerun-if-env-changed=IVREXA_LIB_DIR");
    if let Ok(folder) = std::env::var("IVREXA_LIB_DIR") {
        println!("cargo:rustc-link-search=native={}", folder);
    }
}
